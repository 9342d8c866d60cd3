// What every command ends with when it cannot go on. A command's callback does the work, prints the result to
// standard output and throws what went wrong; main() turns that into one line and an exit status.
#pragma once

#include <stdexcept>
#include <string>

#include "tools/vlmctl/console/exit_status.h"

namespace vlm::ctl {

// One clear line in UTF-8 for standard error, and the exit status that goes with it.
class CommandError : public std::runtime_error {
 public:
    explicit CommandError(const std::string& what, int status = kFailed)
        : std::runtime_error(what), status_(status) {}
    int Status() const { return status_; }

 private:
    int status_;
};

}  // namespace vlm::ctl
