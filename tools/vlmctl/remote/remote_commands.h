// The door to the family "remote": the remote procedures of a monitor, and the frames that they send to a
// printer.
#pragma once

namespace CLI {
class App;
}

namespace vlm::ctl {

void AddRpcCommands(CLI::App& app);
void AddVpcaCommands(CLI::App& app);

}  // namespace vlm::ctl
