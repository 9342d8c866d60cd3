// One print job of random shape through an open port, as the spooler prints it, and the checks: each byte,
// each result and last error, the calls below, what the spooler is told.
#pragma once

#include <windows.h>

#include <string>

#include "soak/printer_port.h"
#include "soak/worker.h"

namespace vlm::soak {

// A port that is open in the monitor.
struct OpenPort {
    PrinterPort& below;
    HANDLE handle;
    std::wstring printer;
};

OpenPort Open(Stage& stage, PrinterPort& below, const std::wstring& printer);

enum class Rivals { kNone, kRemoteCalls, kJobs };  // who else uses the port

// The port may be busy when it has rivals; then there is no job. `hold` is the time, in milliseconds, that
// the job keeps the port at least.
void PrintJob(Worker& worker, const OpenPort& port, Random& random, Rivals rivals, DWORD hold = 0);

Outcome StartDocument(Worker& worker, const OpenPort& port, DWORD job);
// One write with the check against the suspend notices, of which `notices` had ended before the job began.
Outcome WriteChecked(Worker& worker, HANDLE port, const std::string& bytes, unsigned notices, DWORD* written);

}  // namespace vlm::soak
