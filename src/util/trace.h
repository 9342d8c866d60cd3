// The trace: lines of text about what the monitor did or refused, for diagnosing a print server.
//
// Each line has a level and up to two destinations: the debugger output (OutputDebugStringW, or the stream of
// SetTraceStream) if the process's trace level includes it, and the event provider (event_provider.h) if an
// event tracing session records that level. A line without a destination is not formatted.
//
// Texts are formatted as by wprintf and written in one piece, each with its own "\r\n". Any thread may trace.
// Tracing allocates nothing, never throws, blocks on nothing but the stream, and keeps GetLastError(). The
// debugger output waits for its reader, so no lock should be held across it. A text that cannot be formatted,
// or is longer than 4,095 characters, is dropped.
//
// Text from outside (a file, a printer, an RPC caller) is made printable first, so that it can neither break
// the line nor send control codes to a terminal.
#pragma once

#include <windows.h>

#include <array>
#include <string>
#include <string_view>

namespace vlm {

// The numbers are those of event tracing; each level comes with those above it.
enum class TraceLevel : UCHAR {
    kOff = 0,
    kError = 2,        // what failed or was refused, and why
    kInformation = 4,  // one line for each job, query, exchange and remote call that ended
    kVerbose = 5,      // also how each began, and who answered each entry of a query
};

// At the level of errors.
void Trace(const wchar_t* format, ...);
void TraceAt(TraceLevel level, const wchar_t* format, ...);
// Whether lines of that level have a destination.
bool IsTraced(TraceLevel level);

// The level up to which lines go to the debugger output; kError at first.
void SetTraceLevel(TraceLevel level);
// Sets the level from the environment: VLLM3MON_TRACE=off|error|info|verbose. Any other value is ignored.
void ReadTraceLevel();
// The value of that variable if it is not a level; empty otherwise.
std::wstring UnknownTraceLevel();

// Replaces the debugger output: a function that receives one whole text at a time, on any thread, and must
// not throw. Null restores the debugger output.
using TraceStream = void (*)(const wchar_t* text);
void SetTraceStream(TraceStream stream);

// `text` with every control character and lone surrogate replaced by '?', truncated to `limit` characters and
// "...".
std::wstring Printable(std::wstring_view text, size_t limit = 256);

// The same for a name within double quotes; double quotes inside it become apostrophes. Allocates nothing, so
// it works when memory has run out. Null counts as empty.
class TraceName {
 public:
    explicit TraceName(const wchar_t* name);
    const wchar_t* c_str() const { return text_.data(); }

 private:
    static constexpr size_t kLimit = 256;
    std::array<wchar_t, kLimit + 4> text_;
};

}  // namespace vlm
