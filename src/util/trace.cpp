#include "util/trace.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cwchar>
#include <iterator>

#include "util/event_provider.h"
#include "util/handles.h"

namespace vlm {

namespace {

void WriteToDebugger(const wchar_t* text) {
    OutputDebugStringW(text);
}

constinit std::atomic<TraceStream> traceStream{&WriteToDebugger};
constinit std::atomic<TraceLevel> streamLevel{TraceLevel::kError};

// Longer than any text of ours with its arguments made printable; what is longer still is not worth a line.
constexpr size_t kLongestTrace = 4096;

bool IsStreamed(TraceLevel level) {
    return level <= streamLevel.load(std::memory_order_relaxed);
}

void Write(TraceLevel level, const wchar_t* format, va_list arguments) {
    const bool streamed = IsStreamed(level);
    const bool recorded = IsEventRecorded(level);
    if (!streamed && !recorded) return;
    const LastErrorKeeper keeper;
    wchar_t text[kLongestTrace];
    // Counted first: what vswprintf reports for a text that does not fit differs between runtimes.
    va_list counted;
    va_copy(counted, arguments);
    const int length = format != nullptr ? _vscwprintf(format, counted) : -1;
    va_end(counted);
    if (length < 0 || static_cast<size_t>(length) >= kLongestTrace) return;
    if (std::vswprintf(text, kLongestTrace, format, arguments) != length) return;
    if (recorded) RecordEvent(level, text);
    if (streamed) traceStream.load(std::memory_order_acquire)(text);
}

bool IsPair(std::wstring_view text, size_t at) {
    return IS_HIGH_SURROGATE(text[at]) && at + 1 < text.size() && IS_LOW_SURROGATE(text[at + 1]);
}

// Replaces in place what is not printable.
void MakePrintable(wchar_t* text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        const wchar_t c = text[i];
        if (IsPair({text, length}, i)) {
            ++i;
            continue;
        }
        const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
        if (control || IS_HIGH_SURROGATE(c) || IS_LOW_SURROGATE(c)) text[i] = L'?';
    }
}

constexpr wchar_t kTraceVariable[] = L"VLLM3MON_TRACE";

struct NamedLevel {
    const wchar_t* name;
    TraceLevel level;
};
constexpr NamedLevel kLevels[] = {{L"off", TraceLevel::kOff},
                                  {L"error", TraceLevel::kError},
                                  {L"info", TraceLevel::kInformation},
                                  {L"verbose", TraceLevel::kVerbose}};

const NamedLevel* FindLevel(const wchar_t* name) {
    for (const NamedLevel& known : kLevels)
        if (_wcsicmp(name, known.name) == 0) return &known;
    return nullptr;
}

}  // namespace

void Trace(const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Write(TraceLevel::kError, format, arguments);
    va_end(arguments);
}

void TraceAt(TraceLevel level, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Write(level, format, arguments);
    va_end(arguments);
}

bool IsTraced(TraceLevel level) {
    return IsStreamed(level) || IsEventRecorded(level);
}

void SetTraceLevel(TraceLevel level) {
    streamLevel.store(level, std::memory_order_relaxed);
}

void ReadTraceLevel() {
    const LastErrorKeeper keeper;
    wchar_t value[16] = {};
    const DWORD length = GetEnvironmentVariableW(kTraceVariable, value, std::size(value));
    if (length >= std::size(value)) return;
    if (const NamedLevel* known = FindLevel(value)) SetTraceLevel(known->level);
}

std::wstring UnknownTraceLevel() {
    const LastErrorKeeper keeper;
    std::wstring value(GetEnvironmentVariableW(kTraceVariable, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(kTraceVariable, value.data(), static_cast<DWORD>(value.size())));
    return FindLevel(value.c_str()) != nullptr ? std::wstring() : value;
}

void SetTraceStream(TraceStream stream) {
    traceStream.store(stream != nullptr ? stream : &WriteToDebugger, std::memory_order_release);
}

std::wstring Printable(std::wstring_view text, size_t limit) {
    std::wstring printable(text.substr(0, limit));
    MakePrintable(printable.data(), printable.size());
    if (text.size() > limit) printable += L"...";
    return printable;
}

TraceName::TraceName(const wchar_t* name) {
    const std::wstring_view whole = name != nullptr ? name : L"";
    const size_t length = whole.copy(text_.data(), kLimit);
    MakePrintable(text_.data(), length);
    std::replace(text_.data(), text_.data() + length, L'"', L'\'');
    std::wcscpy(text_.data() + length, whole.size() > length ? L"..." : L"");
}

}  // namespace vlm
