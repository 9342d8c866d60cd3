// The door to the family "trace": what the monitor says in any process.
#pragma once

#include <CLI/CLI.hpp>

namespace vlm::ctl {

void AddTraceCommand(CLI::App& app);

}  // namespace vlm::ctl
