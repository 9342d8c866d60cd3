#include "tools/vlmctl/remote/remote_commands.h"

namespace vlm::ctl {

void AddRemoteCommands(CLI::App& app) {
    AddRpcCommands(app);
    AddVpcaCommands(app);
}

}  // namespace vlm::ctl
