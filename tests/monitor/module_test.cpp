// The module as it is loaded and unloaded, alone and beside others.
#include "tests/monitor/port_fixture.h"
#include "tests/support/process.h"
#include "tests/support/resources.h"

namespace vlm::test {
namespace {

const std::wstring kDll = host::BesideProgram(L"vllm3mon.dll");

KernelHandle ThreadOfEventWindow() {
    return KernelHandle(OpenThread(SYNCHRONIZE, FALSE, GetWindowThreadProcessId(EventWindow(), nullptr)));
}

TEST(ModuleTest, LoadsAndUnloadsAgainAndAgainWithoutStallOrLeak) {
    const auto cycle = [] {
        KernelHandle thread;
        {
            const host::MonitorHost host(kDll);
            thread = ThreadOfEventWindow();
        }
        // The window thread has left the module, but the system may still be burying it.
        EXPECT_EQ(WaitForSingleObject(thread.Get(), 5'000), WAIT_OBJECT_0);
    };
    // The heap's front end fills its pools meanwhile (resources.h).
    for (int i = 0; i < 6; ++i)
        cycle();
    constexpr size_t kRounds = 20;
    const Resources before = CountResources();
    const ULONGLONG begin = GetTickCount64();
    for (size_t i = 0; i < kRounds; ++i) {
        cycle();
        EXPECT_EQ(GetModuleHandleW(L"vllm3mon.dll"), nullptr);
        EXPECT_EQ(EventWindow(), nullptr);
    }
    // Each unload waits at most 3 s for the window thread; that it takes no such wait at all is the point.
    EXPECT_LT(GetTickCount64() - begin, kRounds * 1'500);
    // What a load leaves is there once a round. A thread or two of the system's pool may come or go
    // meanwhile, when other tests ran before.
    const Resources after = CountResources();
    EXPECT_LT(after.handles, before.handles + kRounds);
    EXPECT_LT(after.threads, before.threads + kRounds);
    // What the runtimes of the compiler and of RPC keep of each load.
    EXPECT_LE(after.heapBlocks, before.heapBlocks + 2 * kRounds);
}

TEST(ModuleTest, UnloadWaitsForTheThreadOfAWindowThatWasClosed) {
    static WNDPROC original = nullptr;
    static const HANDLE closed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    KernelHandle thread;
    {
        const host::MonitorHost host(kDll);
        const HWND window = EventWindow();
        thread = ThreadOfEventWindow();
        original = reinterpret_cast<WNDPROC>(GetWindowLongPtrW(window, GWLP_WNDPROC));
        const WNDPROC slow = [](HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
            const LRESULT result = CallWindowProcW(original, hwnd, message, wParam, lParam);
            if (message == WM_DESTROY) {
                SetEvent(closed);
                Sleep(1'000);
            }
            return result;
        };
        SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(slow));
        PostMessageW(window, WM_CLOSE, 0, 0);
        ASSERT_EQ(WaitForSingleObject(closed, 5'000), WAIT_OBJECT_0);
    }
    // It runs into code that is gone otherwise.
    EXPECT_EQ(WaitForSingleObject(thread.Get(), 5'000), WAIT_OBJECT_0);
}

TEST(ModuleTest, InitializationFailsSoonWhereNoWindowCanBeMade) {
    const Module module(LoadLibraryW(kDll.c_str()));
    const auto initialize = EntryOf(module);
    ASSERT_NE(initialize, nullptr);
    // A class of that name whose windows refuse to come into being.
    WNDCLASSEXW refusing{};
    refusing.cbSize = sizeof refusing;
    refusing.lpszClassName = kEventWindowClass;
    refusing.hInstance = module.Get();
    refusing.lpfnWndProc = [](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 0; };
    ASSERT_NE(RegisterClassExW(&refusing), 0);
    MONITORINIT init{};
    HANDLE manager = nullptr;
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(initialize(&init, &manager), nullptr);
    EXPECT_LT(GetTickCount64() - begin, 10'000U);
    EXPECT_EQ(manager, nullptr);

    // The module recovers when the obstacle is gone (the thread has unregistered the class).
    MONITOR2* table = initialize(&init, &manager);
    ASSERT_NE(table, nullptr);
    table->pfnShutdown(manager);
}

TEST(ModuleTest, TwoProcessesEachHaveTheirOwnMonitor) {
    host::MonitorHost host(kDll);
    // The other one finds our window, prints nothing and ends while ours goes on.
    EXPECT_EQ(RunProgram(L"spoolhost.exe"), 0U);
    EXPECT_NE(EventWindow(), nullptr);
    LowerMonitor lower;
    wchar_t name[] = L"IP_office";
    HANDLE port = nullptr;
    EXPECT_TRUE(host.Table().pfnOpenPortEx(host.Manager(), &lower, name, name, &port, &lower.table));
    EXPECT_TRUE(host.Table().pfnClosePort(port));
}

}  // namespace
}  // namespace vlm::test
