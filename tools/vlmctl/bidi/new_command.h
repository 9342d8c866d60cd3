// The command "bidi new".
#pragma once

namespace CLI {
class App;
}

namespace vlm::ctl {

void AddNewCommand(CLI::App& bidi);

}  // namespace vlm::ctl
