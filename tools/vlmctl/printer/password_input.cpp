#include "tools/vlmctl/printer/password_input.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/interrupt.h"

namespace vlm::ctl {

namespace {

constexpr DWORD kInterruptComes = 1'000;  // milliseconds
constexpr size_t kLongest = 1024;         // characters, or bytes

// The echo outlives the program, so it comes back before Ctrl+C ends that.
class WithoutEcho {
 public:
    WithoutEcho(HANDLE console, DWORD mode)
        : console_(console), mode_(mode), interrupt_(OnInterrupt::Then::kEnd, [this] {
              Restore();
              std::fputs("\n", stderr);
          }) {
        const DWORD line = ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT;
        if (!SetConsoleMode(console, (mode & ~DWORD{ENABLE_ECHO_INPUT}) | line))
            throw CommandError("cannot turn off the console's echo");
    }
    ~WithoutEcho() { Restore(); }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;

 private:
    void Restore() const { SetConsoleMode(console_, mode_); }

    const HANDLE console_;
    const DWORD mode_;
    const OnInterrupt interrupt_;
};

// A line on the stack, wiped in any case.
template <typename Char>
struct Line {
    Line() = default;
    ~Line() { SecureZeroMemory(text.data(), sizeof text); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    std::array<Char, kLongest + 3>
        text{};  // with room for the line's end, and for a sign that it is too long
    size_t length = 0;
};

template <typename Char>
void CutLineEnd(Line<Char>* line) {
    for (const char end : {'\n', '\r'}) {
        if (line->length > 0 && line->text[line->length - 1] == static_cast<Char>(end)) --line->length;
    }
    if (line->length > kLongest) throw CommandError("the password is longer than 1,024 characters");
}

// XML has no control characters; the printer could not read the question.
std::wstring Checked(std::wstring_view text) {
    for (const wchar_t c : text)
        if (c < L' ' && c != L'\t') throw CommandError("the password contains a control character");
    return std::wstring(text);
}

std::wstring Type(HANDLE console, DWORD mode) {
    Line<wchar_t> line;
    DWORD count = 0;
    BOOL read = FALSE;
    {
        const WithoutEcho quiet(console, mode);
        std::fputs("Password: ", stderr);
        read = ReadConsoleW(console, line.text.data(), static_cast<DWORD>(line.text.size()), &count, nullptr);
        // Every line that was entered has an end, even an empty one. Ctrl+C ends the reading, too, and mostly
        // the program, on another thread.
        if (!read || count == 0) Sleep(kInterruptComes);
    }
    std::fputs("\n", stderr);
    if (!read || count == 0) throw CommandError("interrupted", kInterrupted);
    line.length = count;
    CutLineEnd(&line);
    return Checked({line.text.data(), line.length});
}

std::wstring ReadLine(HANDLE input) {
    Line<char> line;
    char c = '\0';
    bool any = false;
    // Byte by byte: what follows the line is not ours.
    for (DWORD count = 0; line.length < line.text.size() && c != '\n';) {
        if (!ReadFile(input, &c, 1, &count, nullptr) || count != 1) break;
        any = true;
        line.text[line.length++] = c;
    }
    if (!any) throw CommandError("no password on standard input");
    CutLineEnd(&line);
    if (line.length == 0) return {};
    Line<wchar_t> wide;
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, line.text.data(), static_cast<int>(line.length),
                            wide.text.data(), static_cast<int>(wide.text.size()));
    if (length == 0) throw CommandError("the password on standard input is not UTF-8");
    return Checked({wide.text.data(), static_cast<size_t>(length)});
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
