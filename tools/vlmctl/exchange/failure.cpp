#include "tools/vlmctl/exchange/failure.h"

#include <fmt/format.h>

#include "tools/vlmctl/console/command.h"
#include "util/text.h"

namespace vlm::ctl {

void ThrowFailure(const std::string& what, const Outcome& outcome) {
    const std::string line = what + ": " + ToUtf8(outcome.Reason());
    if (outcome == E_FAIL) throw CommandError(line);
    throw CommandError(fmt::format("{} (0x{:08X})", line, static_cast<unsigned long>(outcome.code)));
}

}  // namespace vlm::ctl
