// The trace: one line of text about what the monitor did or refused, for whoever diagnoses a print server.
//
// Trace() formats like wprintf and writes the whole text in one piece, to the debugger output by default
// (OutputDebugStringW; a program may choose another stream with SetTraceStream). Every text carries its own
// "\r\n". Any thread may call it; it never throws, never blocks on anything but the stream, and keeps
// GetLastError() as it was. A text that cannot be formatted, or is longer than 4,095 characters, writes
// nothing.
//
// Text that came from outside (a file, a printer, an RPC caller) goes through Printable() first, so that it
// can neither break the line nor steer a terminal.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace vlm {

void Trace(const wchar_t* format, ...);

// Where the trace goes: a function that receives one whole text at a time, from any thread, and must not
// throw. Null restores the debugger output.
using TraceStream = void (*)(const wchar_t* text);
void SetTraceStream(TraceStream stream);

// `text` with every control character and lone surrogate replaced by '?', cut to `limit` characters with
// "..." behind them.
std::wstring Printable(std::wstring_view text, size_t limit = 256);

}  // namespace vlm
