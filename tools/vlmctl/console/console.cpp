#include "tools/vlmctl/console/console.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console/command.h"
#include "util/vlutil.h"

namespace vlm::ctl {

namespace {

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

}  // namespace

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
    if (!WriteLine(line)) throw CommandError("standard output takes no more");
}

std::string Shown(const std::wstring& text) {
    return host::ToUtf8(Printable(text));
}

std::string Shown(const std::string& text) {
    return Shown(host::FromUtf8(text));
}

Progress::~Progress() {
    if (drawn_) std::fputs("\n", stdout);
}

void Progress::Update(std::uint64_t done) {
    const auto percent = static_cast<unsigned>(total_ == 0 ? 100 : done * 100 / total_);
    if (OnTerminal()) {
        constexpr unsigned kWidth = 40;
        if (drawn_ && percent == shown_) return;
        const unsigned filled = percent * kWidth / 100;
        const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
        const std::string text =
            fmt::format("\r[{}] {:3}%  {} of {}", bar, percent, SizeText(done), SizeText(total_));
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
