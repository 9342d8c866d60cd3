// How the Bidi engine's files raise failures and how its entry points stop them.
#pragma once

#include <string>

#include "util/comerror.h"
#include "util/outcome.h"
#include "util/trace.h"

namespace vlm {

// All files of the engine report under one source name, with the line of the call (a builtin that every
// compiler of ours knows). The reason names the file or the element, and is printable.
[[noreturn]] inline void ThrowEngineError(HRESULT hr, const std::wstring& reason = {},
                                          unsigned line = __builtin_LINE()) {
    throw CComErrorEx(hr, "velunbidispl", line, reason.c_str());
}

// E_FAIL, whose line in the trace has a wording of its own, which readers of traces know.
[[noreturn]] inline void ThrowTracedError(const std::wstring& traced, const std::wstring& reason,
                                          unsigned line = __builtin_LINE()) {
    Trace(L"Error: %ls\r\n", traced.c_str());
    ThrowEngineError(E_FAIL, reason, line);
}

inline void CheckEngine(HRESULT hr, unsigned line = __builtin_LINE()) {
    if (FAILED(hr)) ThrowEngineError(hr, {}, line);
}

// Runs one entry point of the engine. What it throws ends here: as its HRESULT, with its report in the trace.
// `reason` becomes that of the exception, empty without one.
template <typename Operation>
HRESULT GuardEntry(const wchar_t* name, std::wstring* reason, Operation&& operation) noexcept {
    Outcome outcome;
    try {
        outcome.code = operation();
    } catch (const CComErrorEx& error) {
        Trace(L"%ls", error.Message());
        outcome = CaughtOutcome();
    } catch (...) {
        outcome = CaughtOutcome();
        Trace(L"Error: Unexpected failure from CVelunBidiSpl::%ls\r\n", name);
    }
    reason->swap(outcome.reason);
    return outcome.code;
}

}  // namespace vlm
