#include "util/vlutil.h"

#include <atomic>
#include <cstdarg>
#include <cwchar>

#include "util/handles.h"

namespace vlm {

namespace {

void WriteToDebugger(const wchar_t* text) {
    OutputDebugStringW(text);
}

std::atomic<TraceStream> traceStream{&WriteToDebugger};

// Longer than any text of ours with its arguments made printable; what is longer still is not worth a line.
constexpr size_t kLongestTrace = 4096;

}  // namespace

void Trace(const wchar_t* format, ...) {
    const LastErrorKeeper keeper;
    wchar_t text[kLongestTrace];
    va_list arguments;
    va_start(arguments, format);
    // Counted first: what vswprintf reports for a text that does not fit differs between runtimes.
    va_list counted;
    va_copy(counted, arguments);
    const int length = format != nullptr ? _vscwprintf(format, counted) : -1;
    va_end(counted);
    const bool fits = length >= 0 && static_cast<size_t>(length) < kLongestTrace &&
                      std::vswprintf(text, kLongestTrace, format, arguments) == length;
    va_end(arguments);
    if (!fits) return;
    traceStream.load(std::memory_order_acquire)(text);
}

void SetTraceStream(TraceStream stream) {
    traceStream.store(stream != nullptr ? stream : &WriteToDebugger, std::memory_order_release);
}

std::wstring Printable(std::wstring_view text, size_t limit) {
    std::wstring printable(text.substr(0, limit));
    for (size_t i = 0; i < printable.size(); ++i) {
        const wchar_t c = printable[i];
        const bool pair =
            IS_HIGH_SURROGATE(c) && i + 1 < printable.size() && IS_LOW_SURROGATE(printable[i + 1]);
        if (pair) {
            ++i;
            continue;
        }
        const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
        if (control || IS_HIGH_SURROGATE(c) || IS_LOW_SURROGATE(c)) printable[i] = L'?';
    }
    if (text.size() > limit) printable += L"...";
    return printable;
}

}  // namespace vlm
