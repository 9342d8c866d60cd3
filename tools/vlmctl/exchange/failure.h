// How a failure of the monitor's libraries becomes a command's one line.
#pragma once

#include <string>

#include "util/outcome.h"

namespace vlm::ctl {

// Throws CommandError: "WHAT: REASON (0x80070057)"; without the number where that only says "failed".
[[noreturn]] void ThrowFailure(const std::string& what, const Outcome& outcome);

}  // namespace vlm::ctl
