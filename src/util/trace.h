// The trace: one line of text about what the monitor did or refused, for whoever diagnoses a print server.
//
// A line has a level. It goes to two places: to the debugger output (OutputDebugStringW; a program may choose
// another stream with SetTraceStream) when its level is among those that the process asks for, and to the
// event provider (event_provider.h) when a session of event tracing asks for it. A line that nobody asks for
// is not even formatted.
//
// Texts are formatted as by wprintf and written in one piece. Every text carries its own "\r\n". Any thread
// may trace; tracing allocates nothing, never throws, never blocks on anything but the stream, and keeps
// GetLastError() as it was. Since the debugger output waits for its reader, no lock should be held across
// it. A text that cannot be formatted, or is longer than 4,095 characters, writes nothing.
//
// Text that came from outside (a file, a printer, an RPC caller) is made printable first, so that it can
// neither break the line nor steer a terminal.
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
// Whether anybody asks for lines of that level.
bool IsTraced(TraceLevel level);

// How much goes to the debugger output; kError at first.
void SetTraceLevel(TraceLevel level);
// Sets the level that the process's environment names: VLLM3MON_TRACE=off|error|info|verbose. Any other value
// changes nothing.
void ReadTraceLevel();
// What the environment names as the level when that is none of these; empty otherwise.
std::wstring UnknownTraceLevel();

// Where the trace goes in place of the debugger output: a function that receives one whole text at a time,
// from any thread, and must not throw. Null restores the debugger output.
using TraceStream = void (*)(const wchar_t* text);
void SetTraceStream(TraceStream stream);

// `text` with every control character and lone surrogate replaced by '?', cut to `limit` characters with
// "..." behind them.
std::wstring Printable(std::wstring_view text, size_t limit = 256);

// The same for a name that stands between double quotes, with apostrophes for such quotes in it. Has all its
// memory in itself, for lines that are written when memory has run out. Null counts as empty.
class TraceName {
 public:
    explicit TraceName(const wchar_t* name);
    const wchar_t* c_str() const { return text_.data(); }

 private:
    static constexpr size_t kLimit = 256;
    std::array<wchar_t, kLimit + 4> text_;
};

}  // namespace vlm
