#include "util/outcome.h"

#include <new>

#include "util/comerror.h"

namespace vlm {

const wchar_t* Outcome::Reason() const {
    if (!reason.empty()) return reason.c_str();
    return code == E_OUTOFMEMORY ? L"out of memory" : L"no reason is known";
}

Outcome CaughtOutcome() noexcept {
    Outcome outcome{E_FAIL, {}};
    try {
        try {
            throw;
        } catch (const CComErrorEx& error) {
            outcome.code = error.Error();
            outcome.reason = error.Reason();
        } catch (const _com_error& error) {
            outcome.code = error.Error();
            outcome.reason = DescribeHresult(outcome.code);
        } catch (const std::bad_alloc&) {
            outcome.code = E_OUTOFMEMORY;
        } catch (...) {
            outcome.reason = L"an unexpected exception";
        }
    } catch (...) {
        outcome.reason.clear();  // no memory for it
    }
    return outcome;
}

DWORD Win32FromHresult(HRESULT hr) {
    if (SUCCEEDED(hr)) return ERROR_SUCCESS;
    return HRESULT_FACILITY(hr) == FACILITY_WIN32 ? HRESULT_CODE(hr) : DWORD{ERROR_FUNCTION_FAILED};
}

}  // namespace vlm
