// The door to the family "bidi": what an author of extension files tries and checks them with.
#pragma once

#include <CLI/CLI.hpp>

namespace vlm::ctl {

void AddBidiCommands(CLI::App& app);
// "bidi new", called by the one above.
void AddNewCommand(CLI::App& bidi);

}  // namespace vlm::ctl
