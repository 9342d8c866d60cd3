#include <stdexcept>

#include "monitor/event_window.h"
#include "soak/workers.h"

namespace vlm::soak {

void PrintWorker::Step(Random& random) {
    // Jobs that last longer than the other worker waits are rare, because they cost both a second.
    const DWORD hold = rivals_ != Rivals::kJobs ? 0 : random.OneIn(12) ? 1'300 : random.Below(150);
    PrintJob(*this, port_, random, rivals_, hold);
    if (stage.Planted("lost-event") && StepNumber() == 5)
        stage.ExpectJobEvents(number << 24 | 5, "something else");
    Sleep(random.Below(rivals_ == Rivals::kJobs ? 100 : 8));
}

void SuspendWorker::Notify() {
    const HWND window = FindWindowW(kEventWindowClass, kEventWindowTitle);
    Check(window != nullptr, [] { return "the monitor's window is gone"; });
    ++stage.noticesBegun;
    const Outcome outcome = Do("suspend notice", [&]() -> BOOL {
        if (stage.Planted("lost-suspend")) return TRUE;
        DWORD_PTR result = 0;
        return SendMessageTimeoutW(window, WM_POWERBROADCAST, PBT_APMSUSPEND, 0, SMTO_NORMAL, 10'000,
                                   &result) != 0;
    });
    ++stage.noticesEnded;
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
    const unsigned notices = stage.noticesEnded;
    Check(StartDocument(*this, port_, job.id).result, [] { return "a job does not start"; });
    Notify();
    ++stage.suspensions;
    DWORD written = 0;
    WriteChecked(*this, port_.handle, "lost in sleep", notices, &written);
    ++stage.suspensions;
    stage.table.pfnEndDocPort(port_.handle);
    Check(job.arrived.empty() && job.ended, [] { return "bytes came below after a suspend notice"; });
    stage.ExpectJobEvents(job.id, "SENT_TO_PRINTER LAST_PAGE_EJECTED");
    port_.below.Forget(job);
}

}  // namespace vlm::soak
