// EndDocPort: what the monitor does when a job's document ends. It looks whether the job is being deleted or
// restarted, closes the document below, in that case waits for the lower monitor to say that the printer has
// settled, and tells the spooler how far the job got.
#include <array>
#include <cstring>
#include <utility>

#include "monitor/guard.h"
#include "monitor/port_operations.h"
#include "monitor/remote_ports.h"
#include "util/handles.h"
#include "util/scope_exit.h"
#include "util/trace.h"

namespace vlm {

namespace {

// The exchange by which a lower monitor of ours is asked whether the printer has completed a deleted job.
constexpr DWORD kCompletionControl = 0x0022003C;
constexpr std::array<char, 3> kCompletionQuestion = {0x08, 0x00, 0x00};
constexpr char kCompletionAnswer[] = "COMPLETE";
constexpr DWORD kCompletionOffered = 8;   // bytes of answer that the lower monitor is offered
constexpr DWORD kCompletionLongest = 16;  // that many bytes or more returned are no answer
constexpr int kCompletionTries = 5;

// The job's JOB_STATUS_… bits; 0 when the job cannot be read.
DWORD JobStatus(const LmPort& port) {
    const GlobalMemory job = AskForRecord<JOB_INFO_1W>([&port](BYTE* buffer, DWORD size, DWORD* needed) {
        return GetJobW(port.printer, port.jobId, 1, buffer, size, needed);
    });
    return job ? static_cast<const JOB_INFO_1W*>(job.Get())->Status : 0;
}

void NoteJobStatus(LmPort& port) {
    const DWORD status = JobStatus(port);
    if ((status & JOB_STATUS_DELETING) != 0) port.flags.fetch_or(LMPORT_JOB_DELETING);
    if ((status & JOB_STATUS_RESTART) != 0) port.flags.fetch_or(LMPORT_JOB_DELETING | LMPORT_JOB_RESTARTED);
}

// Asks without a pause between the tries: the lower monitor's own wait paces them.
void PollForCompletion(const LmPort& port) {
    const auto ask = port.lower.base.pfnGetPrinterDataFromPort;
    if (ask == nullptr) return;
    for (int attempt = 0; attempt < kCompletionTries && !port.use.closing.load(); ++attempt) {
        // Wide, because that is the slot's type; the bytes in them are narrow text. The answer has room far
        // beyond what is offered, so that a lower monitor that ignores the offer is found out and overruns
        // nothing.
        std::array<wchar_t, 2> question{};
        std::memcpy(question.data(), kCompletionQuestion.data(), kCompletionQuestion.size());
        std::array<wchar_t, 2048> answer{};
        DWORD returned = 0;
        if (!ask(port.lowerPort, kCompletionControl, nullptr, question.data(), kCompletionQuestion.size(),
                 answer.data(), kCompletionOffered, &returned))
            continue;
        if (returned >= kCompletionLongest) {
            Trace(L"Error: port \"%ls\": the lower monitor returned %lu bytes where %lu were offered\r\n",
                  TraceName(port.portName).c_str(), returned, kCompletionOffered);
            return;
        }
        std::array<char, kCompletionLongest> text{};
        std::memcpy(text.data(), answer.data(), returned);
        if (std::strcmp(text.data(), kCompletionAnswer) == 0) return;
    }
    Trace(L"Error: port \"%ls\": no completion of a deleted job\r\n", TraceName(port.portName).c_str());
}

// Tells the spooler how far the job got, and lets go of its printer.
void FinishJob(LmPort& port) {
    // The job's own things are taken out first: once the flag is down, a job whose wait for the lock has just
    // run out may have the port.
    const PrinterHandle printer(std::exchange(port.printer, nullptr));
    const DWORD job = port.jobId;
    const DWORD flags =
        port.flags.fetch_and(~DWORD{LMPORT_JOB_ACTIVE | LMPORT_JOB_DELETING | LMPORT_JOB_RESTARTED});
    if (!printer) return;
    // A job that starts again has not been sent.
    if ((flags & LMPORT_JOB_RESTARTED) == 0)
        SetJobW(printer.Get(), job, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER);
    SetJobW(printer.Get(), job, 0, nullptr, JOB_CONTROL_LAST_PAGE_EJECTED);
}

}  // namespace

BOOL WINAPI EndDocPort(HANDLE hPort) noexcept {
    LmPort* port = EndingPortOf(hPort);
    if (port == nullptr) return FALSE;
    return GuardOperation(L"EndDocPort", port->portName, [&]() -> BOOL {
        const OperationScope scope(*port);

        LastErrorKeeper keeper;
        // Whatever fails or throws below, the job ends and the port is free again.
        const ScopeExit finish([port] {
            TraceEndedJob(*port);
            FinishJob(*port);
            SetEvent(port->portEvent);
        });
        if (port->printer != nullptr && IsNetworkPort(*port)) NoteJobStatus(*port);
        if (port->lower.base.pfnEndDocPort != nullptr) {
            keeper.Restore();
            const DWORD before = GetLastError();
            const BOOL ended = port->lower.base.pfnEndDocPort(port->lowerPort);
            keeper.Update();
            // Some lower monitors answer FALSE to every end, as this one does, and leave no error.
            // A job whose writes failed says so itself.
            if (!ended && GetLastError() != before && GetLastError() != ERROR_SUCCESS &&
                port->metrics.failedWrites == 0)
                TraceRefusal(port->portName, L"the lower monitor does not end the job's document",
                             GetLastError());
        }
        if ((port->flags.load() & LMPORT_JOB_DELETING) != 0) PollForCompletion(*port);
        return FALSE;
    });
}

}  // namespace vlm
