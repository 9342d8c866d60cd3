#include <stdexcept>

#include "monitor/event_window.h"
#include "soak/workers.h"

namespace vlm::soak {

void PrintWorker::Step(Random& random) {
    PrintJob(*this, port_, random, rivals_);
    if (stage.Planted("lost-event") && StepNumber() == 5)
        stage.ExpectJobEvents(number << 24 | 5, "something else");
    Sleep(random.Below(8));
}

void ContendingWorker::Step(Random& random) {
    // A job that lasts longer than the other one waits is rare: it costs both a second.
    const DWORD hold = random.OneIn(12) ? 1'300 : random.Below(150);
    const unsigned before = rival_->changes_;
    ++changes_;
    const bool printed = PrintJob(*this, port_, random, Rivals::kSome, hold);
    ++changes_;
    Check(printed || before % 2 == 1 || rival_->changes_ != before,
          [] { return "the port was busy, and nobody had it"; });
    Sleep(random.Below(100));
}

void SuspendWorker::Notify() {
    const HWND window = FindWindowW(kEventWindowClass, kEventWindowTitle);
    Check(window != nullptr, [] { return "the monitor's window is gone"; });
    stage.suspends.BeginNotice();
    const Outcome outcome = Do("suspend notice", [&]() -> BOOL {
        if (stage.Planted("lost-suspend")) return TRUE;
        DWORD_PTR result = 0;
        return SendMessageTimeoutW(window, WM_POWERBROADCAST, PBT_APMSUSPEND, 0, SMTO_NORMAL, 10'000,
                                   &result) != 0;
    });
    stage.suspends.EndNotice();
    Check(outcome.result, [] { return "the monitor's window did not take the notice"; });
}

void SuspendWorker::Step(Random& random) {
    Sleep(random.Between(20, 400));
    if (!random.OneIn(3)) {
        Notify();
        return;
    }
    const std::unique_lock alone(stage.starting);
    Job job;
    job.id = number << 24 | static_cast<DWORD>(StepNumber());
    stage.spooler.SetJob(port_.printer.c_str(), job.id, L"soak", JOB_STATUS_PRINTING);
    port_.below.Expect(job);
    uint64_t start = 0;
    Check(StartChecked(*this, port_, job.id, port_.printer, &start).result,
          [] { return "a job does not start"; });
    Notify();
    DWORD written = 0;
    Outcome outcome;
    // It is the ledger that says whether this had to be refused.
    WriteChecked(*this, port_.handle, "lost in sleep", start, &written, &outcome);
    stage.table.pfnEndDocPort(port_.handle);
    Check(job.arrived.empty() && job.ended, [] { return "bytes came below after a suspend notice"; });
    stage.ExpectJobEvents(job.id, "SENT_TO_PRINTER LAST_PAGE_EJECTED");
    port_.below.Forget(job);
}

}  // namespace vlm::soak
