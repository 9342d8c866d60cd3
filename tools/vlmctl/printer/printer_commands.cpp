#include "tools/vlmctl/printer/printer_commands.h"

namespace vlm::ctl {

void AddPrinterCommands(CLI::App& app) {
    AddDeptIdCommand(app);
    AddPrintCommand(app);
    AddStatusCommand(app);
    AddWsdCommand(app);
}

}  // namespace vlm::ctl
