// The edge between the spooler and C++: no C++ exception crosses it, as far as this compiler's code knows
// one.
#pragma once

#include <windows.h>

#include <new>

#include "util/vlutil.h"

namespace vlm {

// Runs one operation of the spooler's interface. What it throws ends here as FALSE with a last error: 8 when
// memory ran out, 1627 for anything else, such as an exception that a lower monitor of this compiler let
// through.
//
// With gcc, that is all. What another compiler's runtime throws, or the processor raises, in a lower monitor
// passes through here as if this module were not between: no handler of ours takes it, nothing is undone on
// its way, and unless somebody further out handles it the process ends.
// tests/monitor/foreign_exception_test.cpp shows what a process that survives it finds.
template <typename Operation>
BOOL GuardOperation(const wchar_t* name, Operation&& operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        Trace(L"%ls: out of memory\r\n", name);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    } catch (...) {
        Trace(L"%ls: an exception came up from below\r\n", name);
        SetLastError(ERROR_FUNCTION_FAILED);
    }
    return FALSE;
}

}  // namespace vlm
