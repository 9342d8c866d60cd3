// How our code meets callers that cannot take C++ exceptions.
#pragma once

#include <windows.h>

#include "util/outcome.h"

namespace vlm {

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

}  // namespace vlm
