// What is traced at which level, and to whom.
#include <gtest/gtest.h>

#include <windows.h>
// windows.h first.
#include <evntprov.h>

#include <string>
#include <vector>

#include "tests/util/trace_capture.h"
#include "util/event_provider.h"
#include "util/trace_lines.h"

namespace {

// The system's event tracing: not every system that the tests run on has one. Taken instead of its import
// library, whose names these are.
struct EventTracing {
    REGHANDLE registered = 0;
    UCHAR recorded = 0;  // the highest level that a session asks for
    std::vector<std::wstring> events;
} tracing;

ULONG WINAPI Register(LPCGUID, PENABLECALLBACK, PVOID, PREGHANDLE handle) {
    *handle = tracing.registered = 7;
    return ERROR_SUCCESS;
}
ULONG WINAPI Unregister(REGHANDLE handle) {
    EXPECT_EQ(handle, tracing.registered);
    tracing.registered = 0;
    return ERROR_SUCCESS;
}
BOOLEAN WINAPI Enabled(REGHANDLE handle, UCHAR level, ULONGLONG) {
    EXPECT_EQ(handle, tracing.registered);
    return level <= tracing.recorded;
}
ULONG WINAPI WriteText(REGHANDLE handle, UCHAR level, ULONGLONG, PCWSTR text) {
    EXPECT_EQ(handle, tracing.registered);
    tracing.events.push_back(std::to_wstring(level) + L" " + text);
    return ERROR_SUCCESS;
}

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern decltype(&EventRegister) __imp_EventRegister;
extern decltype(&EventUnregister) __imp_EventUnregister;
extern decltype(&EventProviderEnabled) __imp_EventProviderEnabled;
extern decltype(&EventWriteString) __imp_EventWriteString;
decltype(&EventRegister) __imp_EventRegister = Register;
decltype(&EventUnregister) __imp_EventUnregister = Unregister;
decltype(&EventProviderEnabled) __imp_EventProviderEnabled = Enabled;
decltype(&EventWriteString) __imp_EventWriteString = WriteText;
// NOLINTEND(bugprone-reserved-identifier)
}

namespace vlm {
namespace {

using Texts = std::vector<std::wstring>;

void TraceAtEachLevel() {
    Trace(L"an error\r\n");
    TraceAt(TraceLevel::kInformation, L"news\r\n");
    TraceAt(TraceLevel::kVerbose, L"a detail\r\n");
}

TEST(TraceLevels, EventSessionsHaveTheirOwnLevelAndNothingIsRecordedOutsideTheRegistration) {
    const test::TraceCapture trace;
    tracing = {};
    tracing.recorded = 4;
    TraceAtEachLevel();
    EXPECT_EQ(tracing.events, Texts{});
    RegisterEventProvider();
    SetTraceLevel(TraceLevel::kOff);
    trace.Forget();
    TraceAtEachLevel();
    EXPECT_EQ(tracing.events, (Texts{L"2 an error\r\n", L"4 news\r\n"}));
    EXPECT_EQ(trace.Texts(), Texts{});
    UnregisterEventProvider();
    TraceAtEachLevel();
    EXPECT_EQ(tracing.events.size(), 2U);
    EXPECT_EQ(tracing.registered, 0U);
    SetTraceLevel(TraceLevel::kError);
}

TEST(TraceLines, NamesCannotBreakTheLineNorItsQuotes) {
    const test::TraceCapture trace;
    SetLastError(0xdeadbeef);
    TraceRefusal(L"a\"b\r\nInfo: port \"c\": job", L"refused", 5);
    TraceRefusal(nullptr, L"refused", 6);
    TraceRefusal(std::wstring(300, L'x').c_str(), L"refused", 7);
    EXPECT_EQ(GetLastError(), 0xdeadbeef);
    EXPECT_EQ(trace.Texts(),
              (Texts{L"Error: port \"a'b??Info: port 'c': job\": refused, error 5\r\n",
                     L"Error: port \"\": refused, error 6\r\n",
                     L"Error: port \"" + std::wstring(256, L'x') + L"...\": refused, error 7\r\n"}));
}

}  // namespace
}  // namespace vlm
