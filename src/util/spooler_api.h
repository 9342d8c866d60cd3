// The spooler's interface, in the one order in which its headers compile, and what it hands out.
#pragma once

#include <windows.h>

#include <winspool.h>

#include <winsplp.h>

#include "util/handles.h"

namespace vlm {

struct PrinterTraits : NullTraits<HANDLE> {
    static void Close(Type printer) { ClosePrinter(printer); }
};
using PrinterHandle = Unique<PrinterTraits>;

// A Record that the spooler is asked for twice: for its size, then for the record with the texts behind it.
// `ask(buffer, size, &needed)` is the call. Null when it fails.
template <typename Record, typename Ask>
GlobalMemory AskForRecord(Ask&& ask) {
    DWORD size = 0;
    ask(nullptr, 0, &size);
    if (size < sizeof(Record)) return {};
    GlobalMemory buffer(GlobalAlloc(GPTR, size));
    if (buffer && !ask(static_cast<BYTE*>(buffer.Get()), size, &size)) buffer.Reset();
    return buffer;
}

}  // namespace vlm
