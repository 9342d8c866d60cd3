// The monitor in its process: window, suspend, several initialisations, nothing left behind.
#include "tests/monitor/port_fixture.h"
#include "tests/support/process.h"
#include "tests/support/resources.h"

namespace vlm::test {
namespace {

using LifecycleTest = PortTest;

TEST_F(LifecycleTest, WindowIsHiddenAndSharedByAllInitializations) {
    const HWND window = EventWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_FALSE(IsWindowVisible(window));
    const size_t threads = CountResources().threads;
    const HANDLE second = host.InitializeAgain();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, host.Manager());
    EXPECT_EQ(CountResources().threads, threads);
    EXPECT_EQ(EventWindow(), window);
    table.pfnShutdown(second);
    EXPECT_EQ(EventWindow(), window) << "the window stays until the module goes";
}

TEST_F(LifecycleTest, SuspendNoticeFromAnotherProcessStopsWritesUntilTheNextJob) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    ASSERT_TRUE(Start(port));
    EXPECT_TRUE(Write(port));
    ASSERT_EQ(RunProgram(L"spoolhost.exe suspend"), 0U);
    lower.ForgetCalls();
    for (int i = 0; i < 2; ++i) {
        SetLastError(kPoison);
        EXPECT_FALSE(Write(port));
        EXPECT_EQ(GetLastError(), 63U);
    }
    EXPECT_TRUE(lower.Calls().empty()) << "nothing goes down while suspended";
    table.pfnEndDocPort(port);
    ASSERT_TRUE(Start(port));
    EXPECT_TRUE(Write(port));

    // Any StartDocPort lifts it, even one that is refused.
    SendMessageW(EventWindow(), WM_POWERBROADCAST, PBT_APMSUSPEND, 0);
    EXPECT_FALSE(Write(port));
    EXPECT_FALSE(Start(nullptr));
    EXPECT_TRUE(Write(port));
    // Other power events are none of our business.
    SendMessageW(EventWindow(), WM_POWERBROADCAST, PBT_APMRESUMESUSPEND, 0);
    EXPECT_TRUE(Write(port));
    table.pfnEndDocPort(port);
}

TEST_F(LifecycleTest, WindowThatWasClosedComesBackWithTheNextInitialization) {
    SendMessageW(EventWindow(), WM_CLOSE, 0, 0);
    const ULONGLONG deadline = GetTickCount64() + 5'000;
    while (EventWindow() != nullptr && GetTickCount64() < deadline)
        Sleep(10);
    ASSERT_EQ(EventWindow(), nullptr);
    const HANDLE second = host.InitializeAgain();
    EXPECT_NE(EventWindow(), nullptr);
    table.pfnShutdown(second);
}

TEST_F(LifecycleTest, ManyPortsAndJobsLeaveNothingBehind) {
    const auto print = [&](HANDLE port) {
        ASSERT_TRUE(Start(port));
        ASSERT_TRUE(Write(port));
        table.pfnEndDocPort(port);
    };
    const OpenedPort port = MustOpen(lower, L"IP_jobs");
    const auto settle = [&] {
        lower.ForgetCalls();
        spooler.Reset();
        spooler.Add({L"Office", L"IP_office", nullptr, 0, nullptr, nullptr});
        spooler.SetJob(L"Office", kJob, L"report", JOB_STATUS_DELETING);
        MustOpen(lower, L"IP_office");
        print(port);
        lower.ForgetCalls();
        return CountResources();
    };
    settle();
    const Resources before = settle();
    for (int i = 0; i < 10'000; ++i)
        MustOpen(lower, L"IP_office");
    for (int i = 0; i < 1'000; ++i)
        print(port);
    const Resources after = settle();
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.heapBlocks, before.heapBlocks + 10);
}

}  // namespace
}  // namespace vlm::test
