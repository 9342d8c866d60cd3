// What the commands of vlmctl share. Each command has a file of its own and one function that adds it to the
// command line; its callback does the work, prints the result to standard output and throws what went wrong.
#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace vlm::ctl {

enum ExitStatus : int {
    kDone = 0,
    kFailed = 1,  // the work could not be done; one line on standard error says why. Also: the answer is no
    kWrongUsage = 2,  // the command line makes no sense
};

// One clear line in UTF-8 for standard error, and the exit status that goes with it.
class CommandError : public std::runtime_error {
 public:
    explicit CommandError(const std::string& what, int status = kFailed)
        : std::runtime_error(what), status_(status) {}
    int Status() const { return status_; }

 private:
    int status_;
};

void AddBidiCommands(CLI::App& app);
void AddDeptIdCommand(CLI::App& app);
void AddDoctorCommand(CLI::App& app);
void AddInstallCommands(CLI::App& app);
void AddPrintCommand(CLI::App& app);
void AddRpcCommands(CLI::App& app);
void AddStatusCommand(CLI::App& app);
void AddVpcaCommands(CLI::App& app);
void AddWsdCommand(CLI::App& app);

}  // namespace vlm::ctl
