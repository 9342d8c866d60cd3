// The checks of vlmctl doctor. Each looks at one thing and throws nothing that has to do with it: whatever it
// finds is its finding.
#pragma once

#include <string>
#include <vector>

namespace vlm::ctl {

enum class Health {
    kOk,
    kWrong,
    kUnknown,  // cannot be seen from here
};

struct CheckResult {
    std::string what;
    Health health = Health::kOk;
    std::string text;  // printable; for what is wrong, with what to do about it
};

// Whether the spooler answers and has an entry for the monitor.
CheckResult CheckRegistration();
// Whether the spooler's copy of the file is there, is the monitor as far as its bytes tell, and is of our
// version.
CheckResult CheckImage();
// Whether the event window is there, which shows that a process runs the monitor.
CheckResult CheckEventWindow();
// Whether the remote procedures answer, one result for each of their endpoints.
std::vector<CheckResult> CheckRpc();
// Whether a printer answers: a URL is asked as a WSD print service, HOST or HOST:PORT on its raw port. Throws
// CommandError when `address` is neither.
CheckResult CheckPrinter(const std::string& address);
// Whether the extension files that a driver's INI file names are there and well.
CheckResult CheckIniFile(const std::string& iniFile);
// The same for the driver of an installed printer.
CheckResult CheckDriverOf(const std::string& printer);

}  // namespace vlm::ctl
