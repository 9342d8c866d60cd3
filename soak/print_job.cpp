#include "soak/print_job.h"
#include "util/text.h"

#include <algorithm>
#include <cwctype>
#include <stdexcept>
#include <vector>

namespace vlm::soak {

namespace {

constexpr DWORD kSuspended = 63;
constexpr DWORD kErrors[] = {ERROR_ACCESS_DENIED, ERROR_NOT_READY, ERROR_GEN_FAILURE, ERROR_PRINTQ_FULL,
                             10054 /* WSAECONNRESET */};

struct Plan {
    std::vector<uint32_t> chunks;  // sizes
    uint64_t content = 0;
    DWORD status = JOB_STATUS_PRINTING;
    bool otherSpelling = false;  // of the printer's name
    bool reads = false;
    bool retries = true;  // a write that failed
};

DWORD AnyError(Random& random) {
    return kErrors[random.Below(std::size(kErrors))];
}

Plan Draw(Random& random, Rivals rivals, DWORD hold, Job& job) {
    Plan plan;
    plan.content = random.Next();
    const uint32_t most = random.OneIn(8) ? 100'000 : 8'000;
    for (uint32_t i = random.Below(24) + (hold != 0 ? 1 : 0); i > 0; --i)
        plan.chunks.push_back(random.OneIn(10) ? 0 : random.Between(1, most));
    plan.otherSpelling = random.OneIn(4);
    plan.reads = random.OneIn(4);
    plan.retries = random.OneIn(2);
    switch (random.Below(12)) {
        case 0:
            job.startError = AnyError(random);
            break;
        case 1:
            job.failingWrite = random.Between(1, 6);
            job.writeError = AnyError(random);
            break;
        case 2:
            job.mostPerWrite = random.Between(500, 4'000);
            break;
        case 3:
            job.pause = random.Between(1, 4);
            break;
        case 4:
            job.endError = AnyError(random);
            break;
        case 5:
        case 6:
            if (rivals == Rivals::kSome) break;
            plan.status = random.OneIn(2) ? JOB_STATUS_DELETING : JOB_STATUS_RESTART | JOB_STATUS_PRINTING;
            job.completesAt = random.Below(7);
            break;
        default:
            break;
    }
    if (hold != 0) {
        // In all, however many writes a chunk takes.
        uint64_t writes = plan.chunks.size();
        for (const uint32_t chunk : plan.chunks)
            writes += chunk / job.mostPerWrite;
        job.pause = std::max(job.pause, static_cast<DWORD>(hold / writes));
    }
    return plan;
}

std::string Content(uint64_t seed, uint32_t chunk, uint32_t size) {
    std::string bytes(size, '\0');
    Random random(seed, chunk, size);
    for (size_t i = 0; i < size; i += sizeof(uint64_t)) {
        const uint64_t next = random.Next();
        std::copy_n(reinterpret_cast<const char*>(&next), std::min(sizeof next, size - i),
                    bytes.begin() + static_cast<ptrdiff_t>(i));
    }
    return bytes;
}

// Writes until all is written, or a write is refused for good; what was taken.
std::string WriteAll(Worker& worker, const OpenPort& port, const Plan& plan, const Job& job, uint64_t start) {
    std::string taken;
    for (uint32_t i = 0; i < plan.chunks.size(); ++i) {
        std::string rest = Content(plan.content, i, plan.chunks[i]);
        do {
            const unsigned before = job.writes;
            DWORD written = 0;
            Outcome outcome;
            if (WriteChecked(worker, port.handle, rest, start, &written, &outcome)) {
                worker.Check(job.writes == before + 1, [] { return "a write came below other than once"; });
                worker.Check(outcome.error == kPoison, [] { return "a good write changed the last error"; });
                worker.Check(written == std::min<size_t>(rest.size(), job.mostPerWrite), [&] {
                    return "a write of " + std::to_string(rest.size()) + " bytes took " +
                           std::to_string(written);
                });
                taken += rest.substr(0, written);
                rest.erase(0, std::min<size_t>(written, rest.size()));
                continue;
            }
            if (outcome.error == kSuspended) {
                worker.Check(job.writes == before,
                             [] { return "a write came below after a suspend notice"; });
                return taken;
            }
            worker.Check(job.writes == job.failingWrite && outcome.error == job.writeError, [&] {
                return "a write failed with " + std::to_string(outcome.error) + ", planned " +
                       std::to_string(job.writeError);
            });
            if (!plan.retries) return taken;
        } while (!rest.empty() && !worker.stage.report.Violated());
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
    worker.Check(outcome.result && read == bytes.size() && bytes == ReplyBytes(job.id, bytes.size()),
                 [] { return "the back channel's bytes did not come through"; });
}

bool IsUsb(const OpenPort& port) {
    return port.below.name.starts_with(L"USB");
}

void CheckEnd(Worker& worker, const OpenPort& port, const Plan& plan, const Job& job,
              const std::string& taken) {
    const Outcome outcome = worker.Do("EndDocPort", [&] {
        worker.Check(!worker.stage.table.pfnEndDocPort(port.handle), [] { return "EndDocPort gave TRUE"; });
        return TRUE;
    });
    const bool questioned = (plan.status & (JOB_STATUS_DELETING | JOB_STATUS_RESTART)) != 0 && !IsUsb(port);
    worker.Check(job.ended, [] { return "EndDocPort did not come below"; });
    worker.Check(outcome.error == (job.endError != 0 ? job.endError : kPoison), [&] {
        return "EndDocPort left the last error " + std::to_string(outcome.error) + ", not " +
               std::to_string(job.endError);
    });
    worker.Check(job.arrived == taken, [&] {
        const auto [mine, its] =
            std::mismatch(taken.begin(), taken.end(), job.arrived.begin(), job.arrived.end());
        return "of job " + std::to_string(job.id) + " (" + std::to_string(plan.chunks.size()) + " chunks) " +
               std::to_string(taken.size()) + " bytes were taken and " + std::to_string(job.arrived.size()) +
               " arrived; the first difference is at " + std::to_string(mine - taken.begin());
    });
    constexpr unsigned kMostQuestions = 5;
    const unsigned questions = !questioned            ? 0
                               : job.completesAt == 0 ? kMostQuestions
                                                      : std::min(job.completesAt, kMostQuestions);
    worker.Check(job.questions == questions, [&] {
        return std::to_string(job.questions) + " questions for completion, not " + std::to_string(questions);
    });
    const bool restarted = (plan.status & JOB_STATUS_RESTART) != 0 && !IsUsb(port);
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

Outcome StartChecked(Worker& worker, const OpenPort& port, DWORD job, const std::wstring& printer,
                     uint64_t* start) {
    std::wstring name = printer;
    DOC_INFO_1W document{};
    *start = worker.stage.suspends.BeginStart();
    const Outcome outcome = worker.Do("StartDocPort", [&] {
        return worker.stage.table.pfnStartDocPort(port.handle, name.data(), job, 1,
                                                  reinterpret_cast<LPBYTE>(&document));
    });
    worker.stage.suspends.EndStart();
    return outcome;
}

bool WriteChecked(Worker& worker, HANDLE port, const std::string& bytes, uint64_t start, DWORD* written,
                  Outcome* outcome) {
    const auto suspended = worker.stage.suspends.BeginWrite();
    *outcome = worker.Do("WritePort", [&] {
        return worker.stage.table.pfnWritePort(port,
                                               reinterpret_cast<LPBYTE>(const_cast<char*>(bytes.data())),
                                               static_cast<DWORD>(bytes.size()), written);
    });
    if (!outcome->result && outcome->error == kSuspended) {
        worker.Check(worker.stage.suspends.SuspendedSince(start),
                     [] { return "a write was refused for a suspend that there was not"; });
        return false;
    }
    worker.Check(!worker.stage.suspends.MissedSuspend(suspended),
                 [] { return "a write was not refused after a suspend notice"; });
    return outcome->result != FALSE;
}

bool PrintJob(Worker& worker, const OpenPort& port, Random& random, Rivals rivals, DWORD hold) {
    Job job;
    job.id = worker.number << 24 | static_cast<DWORD>(worker.StepNumber());
    const Plan plan = Draw(random, rivals, hold, job);
    std::wstring printer = port.printer;
    if (plan.otherSpelling) std::transform(printer.begin(), printer.end(), printer.begin(), std::towupper);
    worker.stage.spooler.SetJob(printer.c_str(), job.id, L"soak", plan.status);
    port.below.Expect(job);
    uint64_t start = 0;
    Outcome started;
    {
        const std::shared_lock gate(worker.stage.starting);
        started = StartChecked(worker, port, job.id, printer, &start);
    }
    const bool busy = !started.result && started.error == ERROR_BUSY;
    worker.Check(!busy || rivals == Rivals::kSome, [] { return "busy, and nobody else uses the port"; });
    if (!busy) {
        worker.Check(started.result == (job.startError == 0) &&
                         started.error == (job.startError != 0 ? job.startError : kPoison),
                     [&] {
                         return "StartDocPort gave " + std::to_string(started.result) + " and " +
                                std::to_string(started.error) + ", planned " + std::to_string(job.startError);
                     });
    }
    if (started.result) {
        if (plan.reads) CheckRead(worker, port, job);
        CheckEnd(worker, port, plan, job, WriteAll(worker, port, plan, job, start));
    }
    port.below.Forget(job);
    return !busy;
}

}  // namespace vlm::soak
