// The door to the family "printer": commands that ask a printer, or print on it, over the network.
#pragma once

#include <CLI/CLI.hpp>

namespace vlm::ctl {

void AddDeptIdCommand(CLI::App& app);
void AddPrintCommand(CLI::App& app);
void AddStatusCommand(CLI::App& app);
void AddWsdCommand(CLI::App& app);

}  // namespace vlm::ctl
