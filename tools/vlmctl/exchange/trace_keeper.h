// The cause of a failure, taken from the trace. The libraries report what went wrong there, first the cause,
// then what came of it; their HRESULTs say little.
#pragma once

#include <windows.h>

#include <string>

namespace vlm::ctl {

// While it lives, the first line of the trace is kept; everything goes on to the debugger output. One at a
// time in a process.
class TraceKeeper {
 public:
    TraceKeeper();
    ~TraceKeeper();
    TraceKeeper(const TraceKeeper&) = delete;
    TraceKeeper& operator=(const TraceKeeper&) = delete;
};

// Throws CommandError: "WHAT: CAUSE (0x80070057)"; without the number where that only says "failed". The
// cause is the line that was kept, without the name of the reporting subsystem, and with words for the
// network's error numbers.
[[noreturn]] void ThrowTraced(const std::string& what, HRESULT result);

}  // namespace vlm::ctl
