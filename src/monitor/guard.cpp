#include "monitor/guard.h"

#include "util/outcome.h"
#include "util/trace_lines.h"

namespace vlm {

void EndInException(const wchar_t* operation, const wchar_t* port) noexcept {
    const Outcome caught = CaughtOutcome();
    const DWORD code = caught == E_OUTOFMEMORY ? ERROR_NOT_ENOUGH_MEMORY : ERROR_FUNCTION_FAILED;
    // One line without memory, which may be what there is none of.
    if (port != nullptr) {
        Trace(L"Error: port \"%ls\": %ls: %.1024ls, error %lu\r\n", TraceName(port).c_str(), operation,
              caught.Reason(), code);
    } else {
        Trace(L"Error: %ls: %.1024ls, error %lu\r\n", operation, caught.Reason(), code);
    }
    SetLastError(code);
}

}  // namespace vlm
