// The door to the family "remote": the remote procedures of a monitor, and the frames that they send to a
// printer.
#pragma once

namespace CLI {
class App;
}

namespace vlm::ctl {

// What the program calls.
void AddRemoteCommands(CLI::App& app);

// One for each file of the family, called by the one above.
void AddRpcCommands(CLI::App& app);
void AddVpcaCommands(CLI::App& app);

}  // namespace vlm::ctl
