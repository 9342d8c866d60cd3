#include "tools/vlmctl/trace_view.h"

#include <windows.h>

#include <cstdio>
#include <string>

#include "spooler/host/monitor_host.h"

namespace vlm::ctl {

namespace {

// OutputDebugStringW raises this exception with the text; a debugger, or a handler like ours, takes it from
// there. The DLL exports nothing through which its trace could be led elsewhere, and needs nothing this way.
constexpr DWORD kWideDebugText = 0x4001000A;  // DBG_PRINTEXCEPTION_WIDE_C

LONG CALLBACK TakeDebugText(EXCEPTION_POINTERS* exception) {
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode != kWideDebugText || record.NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
    // The length counts the terminator.
    const auto length = static_cast<size_t>(record.ExceptionInformation[0]);
    const std::wstring text(reinterpret_cast<const wchar_t*>(record.ExceptionInformation[1]),
                            length > 0 ? length - 1 : 0);
    const std::string line = "trace: " + host::ToUtf8(text);
    std::fwrite(line.data(), 1, line.size(), stderr);
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

void ShowTrace() {
    AddVectoredExceptionHandler(1, TakeDebugText);
}

}  // namespace vlm::ctl
