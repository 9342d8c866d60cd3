#include "tools/vlmctl/console/console.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tools/vlmctl/console/command.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

constexpr size_t kWidestLine = 79;

UINT codePageBefore = 0;

bool OnTerminal() {
    return _isatty(_fileno(stdout)) != 0;
}

bool WriteLine(std::string_view line) {
    if (_fileno(stdout) < 0) return true;  // started without an output, as by a service
    const std::string whole = std::string(line) + '\n';
    return std::fwrite(whole.data(), 1, whole.size(), stdout) == whole.size() && std::fflush(stdout) == 0;
}

// "1.4 MB", "812 bytes".
std::string SizeText(std::uint64_t bytes) {
    if (bytes < 1000) return fmt::format("{} bytes", bytes);
    const auto size = static_cast<double>(bytes);
    if (bytes < 1'000'000) return fmt::format("{:.1f} kB", size / 1e3);
    return fmt::format("{:.1f} MB", size / 1e6);
}

// What a line of the terminal takes without scrolling, which the last column may cause.
size_t LineWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return kWidestLine;
    return static_cast<size_t>(std::max(info.dwSize.X - 1, 1));
}

}  // namespace

std::string ProgressLine(unsigned percent, std::uint64_t done, std::uint64_t total, size_t width) {
    constexpr size_t kWidestBar = 40;
    constexpr size_t kNarrowestBar = 5;
    const std::string number = fmt::format("{:3}%", percent);
    std::string sizes = fmt::format("  {} of {}", SizeText(done), SizeText(total));
    // What has no room is left out: first most of the bar, then the sizes, then the bar.
    const auto room = [&] { return width - std::min(width, number.size() + sizes.size() + 3); };
    if (room() < kNarrowestBar) sizes.clear();
    if (room() < kNarrowestBar) return number.substr(0, width);
    const size_t bar = std::min(room(), kWidestBar);
    const size_t filled = percent * bar / 100;
    return fmt::format("[{}{}] {}{}", std::string(filled, '#'), std::string(bar - filled, '.'), number,
                       sizes);
}

void PrepareConsole() {
    codePageBefore = GetConsoleOutputCP();
    if (codePageBefore != 0 && SetConsoleOutputCP(CP_UTF8)) std::atexit(RestoreConsole);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

void RestoreConsole() {
    if (codePageBefore != 0) SetConsoleOutputCP(codePageBefore);
}

void Print(std::string_view line) {
    if (!WriteLine(line)) throw CommandError("cannot write to standard output");
}

std::string Shown(const std::wstring& text) {
    return ToUtf8(Printable(text));
}

std::string Shown(const std::string& text) {
    return Shown(FromUtf8(text));
}

std::string Joined(const std::vector<std::string>& texts, std::string_view separator) {
    std::string joined;
    for (const std::string& text : texts) {
        if (!joined.empty() && !text.empty()) joined += separator;
        joined += text;
    }
    return joined;
}

Progress::~Progress() {
    if (drawn_) std::fputs("\n", stdout);
}

void Progress::Update(std::uint64_t done) {
    const auto percent = static_cast<unsigned>(done >= total_ ? 100 : done * 100 / total_);
    if (OnTerminal()) {
        if (drawn_ && percent == shown_) return;
        // A blank for each letter of a longer line before.
        const std::string line = ProgressLine(percent, done, total_, LineWidth());
        const size_t rest = drawnWidth_ > line.size() ? drawnWidth_ - line.size() : 0;
        const std::string text = '\r' + line + std::string(rest, ' ');
        drawnWidth_ = line.size();
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
        drawn_ = true;
        shown_ = percent;
    } else if (percent / 25 > shown_ / 25) {
        shown_ = percent;
        WriteLine(fmt::format("{:3}%  {} of {} bytes", percent, done, total_));
    }
}

}  // namespace vlm::ctl
