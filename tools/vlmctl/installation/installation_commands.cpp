#include "tools/vlmctl/installation/installation_commands.h"

namespace vlm::ctl {

void AddInstallationCommands(CLI::App& app) {
    AddDoctorCommand(app);
    AddInstallCommands(app);
}

}  // namespace vlm::ctl
