// Output of the program: whole lines, each written with one call, so that lines of several threads never mix.
// Write errors (a closed pipe, a full disk) are ignored, and the printer goes on printing.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

namespace vlm::printer {

template <typename... Args>
void Say(fmt::format_string<Args...> format, Args&&... args) {
    const std::string line = fmt::format(format, std::forward<Args>(args)...) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
}

template <typename... Args>
void Complain(fmt::format_string<Args...> format, Args&&... args) {
    const std::string line = "vprinter: " + fmt::format(format, std::forward<Args>(args)...) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace vlm::printer
