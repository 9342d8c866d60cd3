// Exceptions that are not this compiler's own: C++ of another one, or the processor's. They pass through the
// monitor to whoever handles them further out, and nothing is undone on their way. What does a process that
// survives one find?
#include "tests/monitor/port_fixture.h"
#include "util/noinline.h"

namespace vlm::test {
namespace {

constexpr DWORD kOtherCompilersException = 0xE06D7363;

CONTEXT wayOut;
volatile bool armed = false;

// Asked only when no handler of a frame wanted the exception.
LONG WINAPI Survive(EXCEPTION_POINTERS* exception) {
    if (!armed) return EXCEPTION_CONTINUE_SEARCH;
    armed = false;
    *exception->ContextRecord = wayOut;
    return EXCEPTION_CONTINUE_EXECUTION;
}

// Whether an exception came out of the operation and past every frame.
VLM_NOINLINE bool PassesThrough(const std::function<void()>& operation) {
    const auto before = SetUnhandledExceptionFilter(Survive);
    armed = true;
    RtlCaptureContext(&wayOut);
    // Here again after an exception.
    const bool passed = !armed;
    if (!passed) operation();
    armed = false;
    SetUnhandledExceptionFilter(before);
    return passed;
}

void Raise(DWORD code) {
    if (code == EXCEPTION_ACCESS_VIOLATION) {
        int* volatile nowhere = nullptr;
        *nowhere = 1;
    }
    RaiseException(code, 0, 0, nullptr);
}

class ForeignExceptionTest : public PortTest, public testing::WithParamInterface<DWORD> {
 protected:
    ForeignExceptionTest() {
        lower.answer = [this](const char* operation) {
            if (raising == operation) Raise(GetParam());
            return TRUE;
        };
    }
    // One operation below raises, this time.
    bool PassesThroughFrom(const char* operation, const std::function<void()>& call) {
        raising = operation;
        const bool passed = PassesThrough(call);
        raising.clear();
        return passed;
    }
    static bool IsBusy(HANDLE port) { return (Record(port).flags & LMPORT_JOB_ACTIVE) != 0; }

    std::string raising;
};

TEST_P(ForeignExceptionTest, PortStaysBusyUntilItsJobEndsOrItIsClosed) {
    // A printer that cannot be opened: the job's own stays open when ClosePort ends the job.
    for (const bool ends : {true, false}) {
        SCOPED_TRACE(ends);
        OpenedPort port = MustOpen(lower, L"IP_office");
        EXPECT_TRUE(PassesThroughFrom("StartDocPort", [&] { Start(port, kJob, L"Nobody"); }));
        EXPECT_TRUE(IsBusy(port));
        EXPECT_FALSE(LockIsFree(port));
        EXPECT_FALSE(Start(port, kJob, L"Nobody"));
        EXPECT_EQ(GetLastError(), 170U);
        const std::pair<const char*, std::function<BOOL()>> harmless[] = {
            {"WritePort", [&] { return Write(port); }},
            {"ReadPort", [&] { return Read(port); }},
            {"GetPrinterDataFromPort", [&] { return Control(port); }},
        };
        for (const auto& [name, call] : harmless) {
            EXPECT_TRUE(PassesThroughFrom(name, call)) << name;
            EXPECT_TRUE(call()) << name;
        }
        EXPECT_TRUE(PassesThroughFrom("EndDocPort", [&] { table.pfnEndDocPort(port); }));
        EXPECT_TRUE(IsBusy(port));
        if (ends) {
            table.pfnEndDocPort(port);
            EXPECT_FALSE(IsBusy(port));
            EXPECT_TRUE(LockIsFree(port));
        }
        EXPECT_TRUE(port.Close());
        const OpenedPort again = MustOpen(lower, L"IP_office");
        EXPECT_TRUE(Start(again));
        EXPECT_TRUE(Write(again));
        table.pfnEndDocPort(again);
    }
}

TEST_P(ForeignExceptionTest, CloseThatItLeftUnfinishedCanBeRepeatedAndShutdownStillEnds) {
    const HANDLE manager = host.InitializeAgain();
    HANDLE port = nullptr;
    EXPECT_TRUE(PassesThroughFrom("OpenPort", [&] { Open(lower, L"IP_office", &port, manager); }));
    EXPECT_FALSE(Open(lower, L"IP_office", &port, manager));
    EXPECT_EQ(GetLastError(), 170U) << "as one that could not be opened below";

    HANDLE open = nullptr;
    EXPECT_TRUE(Open(lower, L"IP_closed", &open));
    EXPECT_TRUE(PassesThroughFrom("ClosePort", [&] { table.pfnClosePort(open); }));
    HANDLE other = nullptr;
    EXPECT_FALSE(Open(lower, L"IP_closed", &other));
    EXPECT_TRUE(table.pfnClosePort(open));
    MustOpen(lower, L"IP_closed");

    // The operation that never came back to us is waited for.
    const ULONGLONG begin = GetTickCount64();
    table.pfnShutdown(manager);
    EXPECT_LE(GetTickCount64() - begin, 4'500U);
}

INSTANTIATE_TEST_SUITE_P(Of, ForeignExceptionTest,
                         testing::Values(kOtherCompilersException, DWORD{EXCEPTION_ACCESS_VIOLATION}),
                         [](const auto& row) {
                             return row.param == kOtherCompilersException ? "AnotherCompiler"
                                                                          : "TheProcessor";
                         });

}  // namespace
}  // namespace vlm::test
