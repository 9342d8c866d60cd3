#include "tools/vlmctl/password_input.h"

#include <windows.h>

#include <array>
#include <cstdio>

#include "tools/vlmctl/command.h"

namespace vlm::ctl {

namespace {

constexpr size_t kLongest = 1024;  // characters, or bytes

// Ctrl+C ends the input, not the program, which would leave the console without echo.
BOOL WINAPI KeepRunning(DWORD event) {
    return event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT ? TRUE : FALSE;
}

class WithoutEcho {
 public:
    WithoutEcho(HANDLE console, DWORD mode) : console_(console), mode_(mode) {
        SetConsoleCtrlHandler(KeepRunning, TRUE);
        if (!SetConsoleMode(
                console, (mode & ~DWORD{ENABLE_ECHO_INPUT}) | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT)) {
            SetConsoleCtrlHandler(KeepRunning, FALSE);
            throw CommandError("the console's echo cannot be switched off");
        }
    }
    ~WithoutEcho() {
        SetConsoleMode(console_, mode_);
        SetConsoleCtrlHandler(KeepRunning, FALSE);
    }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;

 private:
    HANDLE console_;
    DWORD mode_;
};

// A line on the stack, wiped in any case.
template <typename Char>
struct Line {
    Line() = default;
    ~Line() { SecureZeroMemory(text.data(), sizeof text); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    std::array<Char, kLongest + 2> text{};  // with room for the line's end
    size_t length = 0;
};

[[noreturn]] void RefuseLength() {
    throw CommandError("the password is longer than 1,024 characters");
}

template <typename Char>
void CutLineEnd(Line<Char>* line) {
    for (const char end : {'\n', '\r'}) {
        if (line->length > 0 && line->text[line->length - 1] == static_cast<Char>(end)) --line->length;
    }
}

std::wstring Type(HANDLE console, DWORD mode) {
    Line<wchar_t> line;
    DWORD count = 0;
    BOOL read = FALSE;
    {
        const WithoutEcho quiet(console, mode);
        std::fputs("Password: ", stderr);
        read = ReadConsoleW(console, line.text.data(), static_cast<DWORD>(line.text.size()), &count, nullptr);
    }
    std::fputs("\n", stderr);
    // Every line that was entered has an end, even an empty one; Ctrl+C and Ctrl+Z leave none.
    line.length = count;
    if (!read || count == 0 || line.text[0] == L'\x1A') throw CommandError("cancelled");
    if (count == line.text.size()) RefuseLength();
    CutLineEnd(&line);
    return std::wstring(line.text.data(), line.length);
}

std::wstring ReadLine(HANDLE input) {
    Line<char> line;
    char c = '\0';
    bool any = false;
    // Byte by byte: what follows the line is not ours.
    for (DWORD count = 0; ReadFile(input, &c, 1, &count, nullptr) && count == 1;) {
        any = true;
        if (line.length == line.text.size()) RefuseLength();
        line.text[line.length++] = c;
        if (c == '\n') break;
    }
    if (!any) throw CommandError("there is no password on standard input");
    CutLineEnd(&line);
    if (line.length == 0) return {};
    Line<wchar_t> wide;
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, line.text.data(), static_cast<int>(line.length),
                            wide.text.data(), static_cast<int>(wide.text.size()));
    if (length == 0) throw CommandError("the password on standard input is not UTF-8");
    return std::wstring(wide.text.data(), static_cast<size_t>(length));
}

}  // namespace

std::wstring ReadPassword() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(input, &mode) ? Type(input, mode) : ReadLine(input);
}

void Wipe(std::wstring* text) {
    SecureZeroMemory(text->data(), text->size() * sizeof(wchar_t));
}

}  // namespace vlm::ctl
