// The edge between the spooler and C++: no C++ exception crosses it, as far as this compiler's code knows
// one.
#pragma once

#include <windows.h>

namespace vlm {

// Inside a catch block: leaves a line in the trace, about the port if there is one, and the last error.
void EndInException(const wchar_t* operation, const wchar_t* port) noexcept;

// Runs one operation of the spooler's interface on a port, or on none (null). What it throws ends here as
// FALSE with a last error: 8 when memory ran out, 1627 for anything else, such as an exception that a lower
// monitor of this compiler let through. The name is not looked at before.
//
// With gcc, that is all. What another compiler's runtime throws, or the processor raises, in a lower monitor
// passes through here as if this module were not between: no handler of ours takes it, nothing is undone on
// its way, and unless somebody further out handles it the process ends.
// tests/monitor/foreign_exception_test.cpp shows what a process that survives it finds.
template <typename Operation>
BOOL GuardOperation(const wchar_t* name, const wchar_t* const& port, Operation&& operation) noexcept {
    try {
        return operation();
    } catch (...) {
        EndInException(name, port);
    }
    return FALSE;
}

}  // namespace vlm
