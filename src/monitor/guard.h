// The boundary between the spooler and C++, which no C++ exception of this compiler's crosses.
#pragma once

#include <windows.h>

namespace vlm {

// Inside a catch block: writes a trace line, about the port if there is one, and sets the last error.
void EndInException(const wchar_t* operation, const wchar_t* port) noexcept;

// Runs one operation of the spooler's interface on a port, or on none (null). An exception becomes FALSE with
// a last error: 8 for out of memory, 1627 for anything else, such as an exception out of a lower monitor that
// was built with this compiler. `port` is read only then.
//
// With gcc, no other exception is caught. What another compiler's runtime throws, or the processor raises, in
// a lower monitor passes through this module: no handler here catches it, nothing is unwound, and unless a
// frame further out handles it the process ends. tests/monitor/foreign_exception_test.cpp shows the state
// that it leaves.
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
