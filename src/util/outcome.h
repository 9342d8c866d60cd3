// How an operation ended: its code, and the reason of a failure in words.
//
// A reason is one printable line without its end. It goes up beside the code, from where the failure is found
// to where it is told, once: to the trace of a port, or to the person at the command line. It names what it
// is about (a file, an element, a host), because whoever tells it does not know.
#pragma once

#include <windows.h>

#include <string>

namespace vlm {

struct Outcome {
    HRESULT code = S_OK;
    std::wstring reason;  // empty after a success, and when there was no memory for it

    // So that it stands wherever only the code matters.
    operator HRESULT() const { return code; }  // NOLINT(google-explicit-constructor)
    // The reason, or what can be said without one.
    const wchar_t* Reason() const;
};

// Inside a catch block: what was caught. Every edge that exceptions must not cross tells them apart with
// this.
Outcome CaughtOutcome() noexcept;

// Runs `body`, which returns an HRESULT or an Outcome, and turns an exception out of it into one. Every COM
// callback, thread entry and public function is guarded: no C++ exception of this compiler crosses them.
template <typename Body>
auto GuardHresult(Body&& body) noexcept -> decltype(body()) {
    try {
        return body();
    } catch (...) {
        return CaughtOutcome();
    }
}

// What the system says of a code.
std::wstring DescribeHresult(HRESULT hr);

// The Win32 code that the HRESULT carries; 1627 for a failure without one.
DWORD Win32FromHresult(HRESULT hr);

}  // namespace vlm
