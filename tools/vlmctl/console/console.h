// Standard output as the commands use it: UTF-8, whole lines, line feeds only.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::ctl {

// Prepares both standard streams. Called once, first. The console's code page comes back when the program
// ends.
void PrepareConsole();
// What PrepareConsole has arranged for the end of the program, for an end that passes that over.
void RestoreConsole();

// Throws CommandError when nobody takes the line: the reader of a pipe has gone, the disk is full.
void Print(std::string_view line);

// Text of a file, a printer or a user without what could steer a terminal, and not too long for a line.
std::string Shown(const std::wstring& text);
std::string Shown(const std::string& text);

// "1 file", "2 files"
template <typename Number>
std::string Counted(Number count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

// The texts that are not empty, with the separator between them.
std::string Joined(const std::vector<std::string>& texts, std::string_view separator);

template <typename... Arguments>
void PrintLine(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    Print(fmt::format(format, std::forward<Arguments>(arguments)...));
}

// "[####....]  40%  1.2 MB of 3.0 MB", in no more than `width` columns.
std::string ProgressLine(unsigned percent, std::uint64_t done, std::uint64_t total, size_t width);

// A progress bar on a terminal, redrawn in place; elsewhere a plain line for each quarter. That nobody takes
// it is no failure: the work goes on.
class Progress {
 public:
    explicit Progress(std::uint64_t total) : total_(total) {}
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(std::uint64_t done);

 private:
    std::uint64_t total_;
    unsigned shown_ = 0;  // percent
    bool drawn_ = false;
    size_t drawnWidth_ = 0;
};

}  // namespace vlm::ctl
