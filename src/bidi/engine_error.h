// How the Bidi engine's files raise failures and how its entry points stop them.
#pragma once

#include <new>
#include <string>

#include "util/comerror.h"
#include "util/vlutil.h"

namespace vlm {

// All files of the engine report under one source name, with the line of the call (a builtin that every
// compiler of ours knows).
[[noreturn]] inline void ThrowEngineError(HRESULT hr, unsigned line = __builtin_LINE()) {
    throw CComErrorEx(hr, "velunbidispl", line);
}

inline void CheckEngine(HRESULT hr, unsigned line = __builtin_LINE()) {
    if (FAILED(hr)) ThrowEngineError(hr, line);
}

// Runs one entry point of the engine. What it throws ends here: as its HRESULT, with its report in the trace.
// Every failure leaves a line that tells which printer and which operation it was.
template <typename Operation>
HRESULT GuardEntry(const std::wstring& printer, const wchar_t* name, Operation&& operation) noexcept {
    HRESULT hr = E_FAIL;
    bool unexpected = true;
    try {
        hr = operation();
        unexpected = false;
    } catch (const CComErrorEx& error) {
        Trace(L"%ls", error.Message());
        hr = error.Error();
        unexpected = false;
    } catch (const _com_error& error) {
        hr = error.Error();
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    } catch (...) {
        hr = E_FAIL;
    }
    if (unexpected) Trace(L"Error: Unexpected failure from CVelunBidiSpl::%ls\r\n", name);
    if (FAILED(hr)) {
        Trace(L"CVelunBidiSpl::%ls for printer \"%ls\" gives 0x%08x\r\n", name, printer.c_str(),
              static_cast<unsigned>(hr));
    }
    return hr;
}

}  // namespace vlm
