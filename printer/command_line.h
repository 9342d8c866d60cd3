// The program's options, read and checked.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "printer/raw/behaviour.h"

namespace vlm::printer {

struct Options {
    std::string address = "127.0.0.1";
    std::uint16_t rawPort = 9100;
    std::uint16_t controlPort = 0;
    std::uint16_t wsdPort = 0;
    std::uint16_t wsdsPort = 0;  // HTTPS
    std::string store;
    unsigned printers = 1;  // behind the SOAP ports
    std::string accounts;   // empty for none
    std::string readyFile;  // empty for none
    std::uint64_t documentLimit = std::uint64_t{256} << 20;
    bool exitWithParent = false;
    std::optional<Fault> fault;
    Answer answer;
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Nothing when only help was asked for, which is then printed. Throws UsageError with one line.
std::optional<Options> ParseCommandLine(int argc, char** argv);

}  // namespace vlm::printer
