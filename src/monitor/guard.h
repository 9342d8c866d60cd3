// The edge between the spooler and C++: no exception crosses it.
#pragma once

#include <windows.h>

#include <new>

#include "util/vlutil.h"

namespace vlm {

// Runs one operation of the spooler's interface. What it throws ends here as FALSE with a last error: 8 when
// memory ran out, 1627 for anything else, such as an exception that a lower monitor let through.
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
