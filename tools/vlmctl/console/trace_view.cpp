#include "tools/vlmctl/console/trace_view.h"

#include <windows.h>

#include <cstdio>
#include <string>

#include "util/text.h"

namespace vlm::ctl {

namespace {

// OutputDebugStringW raises the first of these exceptions with its text, or on some systems only the second;
// a debugger, or a handler like ours, takes it from there. The DLL exports nothing through which its trace
// could be led elsewhere, and needs nothing this way.
constexpr DWORD kWideDebugText = 0x4001000A;  // DBG_PRINTEXCEPTION_WIDE_C
constexpr DWORD kDebugText = 0x40010006;      // DBG_PRINTEXCEPTION_C

LONG CALLBACK TakeDebugText(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    const bool wide = record.ExceptionCode == kWideDebugText;
    if ((!wide && record.ExceptionCode != kDebugText) || record.NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
    // The length counts the terminator.
    const size_t counted = static_cast<size_t>(record.ExceptionInformation[0]);
    const size_t length = counted > 0 ? counted - 1 : 0;
    const auto address = record.ExceptionInformation[1];
    const std::wstring text = wide ? std::wstring(reinterpret_cast<const wchar_t*>(address), length)
                                   : FromCodePage({reinterpret_cast<const char*>(address), length});
    const std::string line = "trace: " + ToUtf8(text);
    std::fwrite(line.data(), 1, line.size(), stderr);
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

void ShowTrace() {
    AddVectoredExceptionHandler(1, TakeDebugText);
}

}  // namespace vlm::ctl
