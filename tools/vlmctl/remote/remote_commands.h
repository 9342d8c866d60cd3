// The door to the family "remote": the remote procedures of a monitor, and the frames that they send to a
// printer.
#pragma once

#include <CLI/CLI.hpp>

namespace vlm::ctl {

void AddRpcCommands(CLI::App& app);
void AddVpcaCommands(CLI::App& app);

}  // namespace vlm::ctl
