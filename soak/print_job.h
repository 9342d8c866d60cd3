// One print job of random shape through an open port, as the spooler prints it, with the check of all that
// comes of it: each byte, each result and last error, the calls below, what the spooler is told.
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

enum class Rivals { kNone, kSome };  // whether others use the port, too

// False when the port was busy, which it may be with rivals only. `hold` is the time, in milliseconds, that
// the job keeps the port at least.
bool PrintJob(Worker& worker, const OpenPort& port, Random& random, Rivals rivals, DWORD hold = 0);

// One write with the check against the suspend notices; `start` is what the ledger gave before the job. False
// when it was refused, the outcome then tells with what.
bool WriteChecked(Worker& worker, HANDLE port, const std::string& bytes, uint64_t start, DWORD* written,
                  Outcome* outcome);
// StartDocPort, entered in the ledger.
Outcome StartChecked(Worker& worker, const OpenPort& port, DWORD job, const std::wstring& printer,
                     uint64_t* start);

}  // namespace vlm::soak
