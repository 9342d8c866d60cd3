#include "soak/print_job.h"

#include <algorithm>
#include <stdexcept>

#include "util/text.h"

namespace vlm::soak {

namespace {

constexpr DWORD kSuspended = 63;

Job Draw(Worker& worker, Random& random) {
    Job job;
    job.id = worker.number << 24 | static_cast<DWORD>(worker.StepNumber());
    const uint32_t drawn = random.Below(12);
    if (drawn < 3) {
        job.fails = static_cast<Job::Fails>(drawn + 1);
        job.error = 10'050 + random.Below(5);
    } else if (drawn == 3) {
        job.pause = random.Between(1, 4);
    }
    return job;
}

// Writes pieces until one is refused; what was taken.
std::string WriteAll(Worker& worker, const OpenPort& port, const Job& job, Random& random, unsigned notices) {
    std::string taken;
    const uint32_t most = random.OneIn(8) ? 100'000 : 8'000;
    for (uint32_t left = random.Below(24); left > 0 && !worker.stage.report.Violated(); --left) {
        const std::string piece = BytesOf(random.Next(), random.OneIn(10) ? 0 : random.Between(1, most));
        const unsigned before = job.writes;
        DWORD written = 0;
        const Outcome outcome = WriteChecked(worker, port.handle, piece, notices, &written);
        const unsigned calls = job.writes - before;
        if (!outcome.result) {
            const bool suspended = outcome.error == kSuspended && calls == 0;
            const bool failed = job.fails == Job::Fails::kWrite && outcome.error == job.error && calls == 1;
            worker.Check(suspended || failed, [&] {
                return "a write failed with " + std::to_string(outcome.error) + ", planned " +
                       std::to_string(job.error);
            });
            break;
        }
        worker.Check(calls == 1 && outcome.error == kPoison && written == piece.size(), [&] {
            return "a write of " + std::to_string(piece.size()) + " bytes took " + std::to_string(written) +
                   " in " + std::to_string(calls) + " calls, last error " + std::to_string(outcome.error);
        });
        taken += piece;
    }
    return taken;
}

void CheckRead(Worker& worker, const OpenPort& port, const Job& job) {
    std::string bytes(100, '\0');
    DWORD read = 0;
    const Outcome outcome = worker.Do("ReadPort", [&] {
        return worker.stage.table.pfnReadPort(port.handle, reinterpret_cast<LPBYTE>(bytes.data()),
                                              static_cast<DWORD>(bytes.size()), &read);
    });
    worker.Check(outcome.result && read == bytes.size() && bytes == BytesOf(job.id, bytes.size()),
                 [] { return "the back channel's bytes did not come through"; });
}

void CheckEnd(Worker& worker, const OpenPort& port, const Job& job, DWORD status, const std::string& taken) {
    const Outcome outcome = worker.Do("EndDocPort", [&] {
        worker.Check(!worker.stage.table.pfnEndDocPort(port.handle), [] { return "EndDocPort gave TRUE"; });
        return TRUE;
    });
    const DWORD expected = job.fails == Job::Fails::kEnd ? job.error : kPoison;
    worker.Check(job.ended && outcome.error == expected, [&] {
        return "EndDocPort left the last error " + std::to_string(outcome.error) + ", not " +
               std::to_string(expected);
    });
    worker.Check(job.arrived == taken, [&] {
        const auto [mine, its] =
            std::mismatch(taken.begin(), taken.end(), job.arrived.begin(), job.arrived.end());
        return "of job " + std::to_string(job.id) + " " + std::to_string(taken.size()) +
               " bytes were taken and " + std::to_string(job.arrived.size()) +
               " arrived; the first difference is at " + std::to_string(mine - taken.begin());
    });
    const bool usb = port.below.name.starts_with(L"USB");
    const bool restarted = (status & JOB_STATUS_RESTART) != 0 && !usb;
    worker.Check((job.questions != 0) == (restarted || ((status & JOB_STATUS_DELETING) != 0 && !usb)),
                 [&] { return std::to_string(job.questions) + " questions for completion"; });
    worker.stage.ExpectJobEvents(job.id,
                                 restarted ? "LAST_PAGE_EJECTED" : "SENT_TO_PRINTER LAST_PAGE_EJECTED");
}

}  // namespace

OpenPort Open(Stage& stage, PrinterPort& below, const std::wstring& printer) {
    std::wstring port = below.name;
    std::wstring printerName = printer;
    HANDLE handle = nullptr;
    if (!stage.table.pfnOpenPortEx(stage.host.Manager(), static_cast<test::LowerMonitor*>(&below),
                                   port.data(), printerName.data(), &handle, &below.table))
        throw std::runtime_error("port " + ToUtf8(port) + " does not open");
    return {below, handle, printer};
}

Outcome StartDocument(Worker& worker, const OpenPort& port, DWORD job) {
    std::wstring printer = port.printer;
    // In another case it is another name for the port's record, under the hands of a query.
    if (job % 2 != 0) CharUpperW(printer.data());
    DOC_INFO_1W document{};
    return worker.Do("StartDocPort", [&] {
        return worker.stage.table.pfnStartDocPort(port.handle, printer.data(), job, 1,
                                                  reinterpret_cast<LPBYTE>(&document));
    });
}

Outcome WriteChecked(Worker& worker, HANDLE port, const std::string& bytes, unsigned notices,
                     DWORD* written) {
    Stage& stage = worker.stage;
    const unsigned suspension = stage.suspensions;
    const Outcome outcome = worker.Do("WritePort", [&] {
        return stage.table.pfnWritePort(port, reinterpret_cast<LPBYTE>(const_cast<char*>(bytes.data())),
                                        static_cast<DWORD>(bytes.size()), written);
    });
    if (!outcome.result && outcome.error == kSuspended) {
        worker.Check(stage.noticesBegun > notices,
                     [] { return "a write was refused without a suspend notice"; });
    } else {
        worker.Check(suspension % 2 == 0 || stage.suspensions != suspension,
                     [] { return "a write was not refused after a suspend notice"; });
    }
    return outcome;
}

void PrintJob(Worker& worker, const OpenPort& port, Random& random, Rivals rivals, DWORD hold) {
    Job job = Draw(worker, random);
    const DWORD status = rivals != Rivals::kNone || !random.OneIn(6) ? JOB_STATUS_PRINTING
                         : random.OneIn(2)                           ? JOB_STATUS_DELETING
                                           : JOB_STATUS_RESTART | JOB_STATUS_PRINTING;
    worker.stage.spooler.SetJob(port.printer.c_str(), job.id, L"soak", status);
    port.below.Expect(job);
    const unsigned notices = worker.stage.noticesEnded;
    Outcome started;
    {
        const std::shared_lock gate(worker.stage.starting);
        started = StartDocument(worker, port, job.id);
    }
    const bool busy = !started.result && started.error == ERROR_BUSY && rivals != Rivals::kNone;
    const DWORD expected = job.fails == Job::Fails::kStart ? job.error : kPoison;
    worker.Check(busy || (started.result == (expected == kPoison) && started.error == expected), [&] {
        return "StartDocPort gave " + std::to_string(started.result) + " and " +
               std::to_string(started.error) + ", not " + std::to_string(expected);
    });
    if (started.result) {
        if (random.OneIn(4)) CheckRead(worker, port, job);
        Sleep(hold);
        CheckEnd(worker, port, job, status, WriteAll(worker, port, job, random, notices));
    }
    port.below.Forget(job);
}

}  // namespace vlm::soak
