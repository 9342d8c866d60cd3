// The door to the family "installation": the monitor in this machine, and whether it is in order.
#pragma once

namespace CLI {
class App;
}

namespace vlm::ctl {

void AddDoctorCommand(CLI::App& app);
void AddInstallCommands(CLI::App& app);

}  // namespace vlm::ctl
