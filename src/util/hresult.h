// How code of ours meets callers that know nothing of C++ exceptions.
#pragma once

#include <windows.h>

#include "util/outcome.h"

namespace vlm {

// Runs `body`, which returns an HRESULT, and turns an exception out of it into one. Stands at every COM
// callback, thread entry and public function here: no C++ exception of this compiler's crosses them.
template <typename Body>
HRESULT GuardHresult(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return CaughtOutcome();
    }
}

}  // namespace vlm
