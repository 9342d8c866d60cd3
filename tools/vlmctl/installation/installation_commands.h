// The door to the family "installation": the monitor in this machine, and whether it is in order.
#pragma once

#include <CLI/CLI.hpp>

namespace vlm::ctl {

void AddDoctorCommand(CLI::App& app);
void AddInstallCommands(CLI::App& app);

}  // namespace vlm::ctl
