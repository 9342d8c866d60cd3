// Shows what this process writes to the debugger output, among it the monitor's trace, on standard error.
#pragma once

namespace vlm::ctl {

void ShowTrace();

}  // namespace vlm::ctl
