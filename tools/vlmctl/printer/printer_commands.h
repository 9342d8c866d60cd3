// The door to the family "printer": commands that ask a printer, or print on it, over the network.
#pragma once

namespace CLI {
class App;
}

namespace vlm::ctl {

// What the program calls.
void AddPrinterCommands(CLI::App& app);

// One for each file of the family, called by the one above.
void AddDeptIdCommand(CLI::App& app);
void AddPrintCommand(CLI::App& app);
void AddStatusCommand(CLI::App& app);
void AddWsdCommand(CLI::App& app);

}  // namespace vlm::ctl
