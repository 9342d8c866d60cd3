// Many ports at once, and lower monitors that take their time: nobody waits for somebody else's port.
#include <atomic>
#include <thread>
#include <vector>

#include "tests/monitor/port_fixture.h"

namespace vlm::test {
namespace {

using ConcurrencyTest = PortTest;

// The soak prints on many ports at once, but opens them from one thread.
TEST_F(ConcurrencyTest, PortsOpenAndCloseAtTheSameTime) {
    std::vector<LowerMonitor> below(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < below.size(); ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 1'000; ++round) {
                const OpenedPort port = MustOpen(below[i], L"IP_port" + std::to_wstring(i));
                EXPECT_TRUE(Write(port));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ConcurrencyTest, PortThatBlocksBelowHoldsNobodyUp) {
    LowerMonitor slow;
    HANDLE port = nullptr;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"OpenPort", [&] { Open(slow, L"IP_slow", &port); }},
        {"StartDocPort", [&] { Start(port); }},
        {"WritePort", [&] { Write(port); }},
        {"ReadPort", [&] { Read(port); }},
        {"GetPrinterDataFromPort", [&] { Control(port); }},
        {"EndDocPort", [&] { table.pfnEndDocPort(port); }},
        {"ClosePort", [&] { table.pfnClosePort(port); }},
    };
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        slow.HoldAt(name);
        std::thread blocked(operation);
        ASSERT_TRUE(slow.Holds(20'000));
        // The whole life of another port, and of another manager, while the first is stuck below.
        std::atomic<bool> done{false};
        std::thread other([&] {
            LowerMonitor quick;
            OpenedPort own = MustOpen(quick, L"IP_quick");
            EXPECT_TRUE(Start(own, kJob, L"Somebody else's"));
            EXPECT_TRUE(Write(own));
            table.pfnEndDocPort(own);
            EXPECT_TRUE(own.Close());
            table.pfnShutdown(host.InitializeAgain());
            done = true;
        });
        const ULONGLONG deadline = GetTickCount64() + 10'000;
        while (!done && GetTickCount64() < deadline)
            Sleep(5);
        EXPECT_TRUE(done) << "somebody waited for the slow port";
        slow.LetGo();
        blocked.join();
        other.join();
    }
}

TEST_F(ConcurrencyTest, JobThatStopsWaitingTakesNothingFromTheOneThatEnds) {
    constexpr DWORD kNext = kJob + 1;
    const OpenedPort port = MustOpen(lower, L"IP_office");
    ASSERT_TRUE(Start(port));
    // The next job's wait of a second runs out while the spooler is being told of the first one.
    std::thread next([&] { EXPECT_TRUE(Start(port, kNext)); });
    Sleep(600);
    spooler.AddRule({"SetJobW", 0, 800, 0, 1});
    table.pfnEndDocPort(port);
    next.join();
    table.pfnEndDocPort(port);
    const auto told = [&](DWORD job) {
        size_t lines = 0;
        for (const std::wstring& line : spooler.Log())
            if (line.starts_with(L"SetJobW(Office, job " + std::to_wstring(job))) ++lines;
        return lines;
    };
    EXPECT_EQ(told(kJob), 2U);
    EXPECT_EQ(told(kNext), 2U);
}

TEST_F(ConcurrencyTest, ShutdownWaitsOnceForAllPortsAndLeavesTheOneThatHangs) {
    struct Case {
        const char* hanging;  // below, in the port that hangs
        DWORD atLeast;        // milliseconds that Shutdown waits for it
        std::function<void(HANDLE)> operation;
    };
    const Case cases[] = {
        // A job is not waited for: nobody but the spooler ends it.
        {"WritePort", 0, [&](HANDLE port) { Write(port); }},
        {"EndDocPort", 2'500, [&](HANDLE port) { table.pfnEndDocPort(port); }},
        {"GetPrinterDataFromPort", 2'500, [&](HANDLE port) { Control(port); }},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.hanging);
        LowerMonitor hangs;
        hangs.HoldAt(each.hanging);
        const HANDLE manager = host.InitializeAgain();
        LowerMonitor healthy;
        HANDLE prints = nullptr;
        HANDLE stuck = nullptr;
        EXPECT_TRUE(Open(healthy, L"IP_prints", &prints, manager));
        EXPECT_TRUE(Start(prints));
        // The last one that was opened is the first that is closed.
        EXPECT_TRUE(Open(hangs, L"IP_stuck", &stuck, manager));
        const bool needsJob = std::string(each.hanging) != "GetPrinterDataFromPort";
        EXPECT_EQ(needsJob, needsJob && Start(stuck));
        std::thread hanging([&] { each.operation(stuck); });
        ASSERT_TRUE(hangs.Holds(20'000));
        // The healthy job goes on as long as it may, then ends its document.
        std::thread printing([&] {
            while (Write(prints))
                Sleep(1);
            EXPECT_EQ(GetLastError(), 1461U);
            healthy.ForgetCalls();
            for (int i = 0; i < 20; ++i) {
                EXPECT_FALSE(Write(prints));
                EXPECT_FALSE(Start(prints));
                Sleep(1);
            }
            table.pfnEndDocPort(prints);
        });
        Sleep(50);
        const ULONGLONG begin = GetTickCount64();
        table.pfnShutdown(manager);
        const ULONGLONG waited = GetTickCount64() - begin;
        printing.join();
        EXPECT_GE(waited, each.atLeast);
        EXPECT_LE(waited, 4'500U);
        // In time where Shutdown waited, for another's sake; no document is begun or written to either way.
        EXPECT_EQ(healthy.CountOf("EndDocPort"), each.atLeast != 0 ? 1U : 0U);
        EXPECT_EQ(healthy.CountOf("WritePort") + healthy.CountOf("StartDocPort"), 0U);

        hangs.ForgetCalls();
        hangs.LetGo();
        hanging.join();
        EXPECT_TRUE(hangs.Calls().empty()) << "nothing below is called after Shutdown";
        SetLastError(kPoison);
        EXPECT_FALSE(Write(stuck));
        EXPECT_EQ(GetLastError(), 1461U);
    }
}

}  // namespace
}  // namespace vlm::test
