// Bidi queries when memory runs out, in great number, and at the same time: what is left behind, and who
// waits for whom.
#include <algorithm>
#include <atomic>
#include <memory>
#include <regex>
#include <thread>

#include "tests/monitor/bidi_fixture.h"
#include "tests/support/resources.h"

namespace vlm::test {
namespace {

using BidiLoadTest = BidiPortTest;

const std::vector<LowerEntry> kBelow = {{100, 0, L"\\Below", L"here"}, {100, 232, L"\\Below:None", L""}};

TEST_F(BidiLoadTest, OutOfMemoryAnywhereIsReportedAndLeavesNothing) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    bidi.entries = kBelow;
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    for (const wchar_t* action : {L"Get", L"GetAll"}) {
        const std::vector<const wchar_t*> paths = {kModel, L"\\Printer.Configuration.Memory:Size",
                                                   L"\\Printer.None"};
        Lines whole;
        EXPECT_EQ(Query(port, action, paths, &whole), 0U);
        const LONG64 before = router.Counters().liveBlocks;
        LONG64 failing = 1;
        do {
            SCOPED_TRACE(failing);
            router.ResetAllocations(failing);
            Lines lines;
            const DWORD code = Query(port, action, paths, &lines);
            // What the engine had before memory ran out is an answer, too, but no entry is half one.
            EXPECT_TRUE(code == 0 || code == ERROR_OUTOFMEMORY) << code;
            EXPECT_TRUE(failing > 1 || code == ERROR_OUTOFMEMORY);
            for (const std::wstring& line : lines)
                EXPECT_NE(std::ranges::find(whole, line), whole.end()) << testing::PrintToString(line);
            EXPECT_EQ(router.Counters().liveBlocks, before);
            EXPECT_EQ(spooler.OpenHandles(), 0);
            ASSERT_LT(failing, 100);
        } while (router.Counters().allocations >= failing++);
        // The engine's five blocks, the lower monitor's, and the copies of the merge.
        EXPECT_GT(failing, 18);
        router.ResetAllocations(0);
    }
}

TEST_F(BidiLoadTest, ManyQueriesLeaveNothing) {
    // Without xml:lang, of which Wine's SAX reader keeps a block each.
    const std::string answer = std::regex_replace(ExampleAnswer(), std::regex(" xml:lang=\"[^\"]*\""), "");
    const ScriptedServer printer(Answer(Http("200 OK", answer)));
    const ScriptedServer truncating(Answer(Http("200 OK", answer.substr(0, answer.size() / 2))));
    const TempDir folder;
    folder.Write(L"truncated.xml", "<truncated");
    folder.Write(L"wrong.xml", Extension("<Value name='V' query='w:PrinterStatus' filter='w:A['/>"));
    const std::wstring good = host::BesideProgram(L"examples\\velun.ini");
    const struct {
        std::wstring address;
        std::wstring ini;
    } kCases[] = {
        {TcpAddress(printer), good},
        {L"127.0.0.1:1", good},
        {TcpAddress(truncating), good},
        {TcpAddress(printer), folder.Write(L"1.ini", "[BidiFiles]\r\nBidiWSDFile=truncated.xml\r\n")},
        {TcpAddress(printer), folder.Write(L"2.ini", "[BidiFiles]\r\nBidiWSDFile=wrong.xml\r\n")},
    };
    // In the spooler other code holds the library that the engine loads and frees; here nobody else does, and
    // Wine keeps blocks of each loading.
    const Module crypt32(LoadLibraryW(L"crypt32.dll"));
    bidi.entries = kBelow;
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    const auto queries = [&](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            for (const auto& [address, ini] : kCases) {
                bidi.address = address;
                AddPrinter(L"IP_office", ini);
                EXPECT_EQ(Query(port, L"GetAll", {L"\\"}, nullptr), 0U);
            }
        }
    };
    // The platform's own caches and the heap's pools fill with the first queries.
    queries(25);
    const Resources before = CountResources();
    queries(50);
    const Resources after = CountResources();
    // What a query leaves is there 50 times at least. A few threads of the system's pools, each with its
    // handles, come and go meanwhile, more of them when other tests ran before.
    EXPECT_LE(after.handles, before.handles + 20);
    EXPECT_LE(after.threads, before.threads + 10);
    EXPECT_LE(after.heapBlocks, before.heapBlocks + 40);
}

// Queries that Shutdown meets: one that waits for the printer, one that is inside the lower monitor. Each
// comes back long after it, to a record that must still be there, and calls nothing below any more.
TEST_F(BidiLoadTest, QueryThatOutlastsShutdownEndsWithAnError) {
    const ScriptedServer mute({ReadRequest(), Hold()});
    PointTo(mute);
    for (const bool below : {false, true}) {
        SCOPED_TRACE(below);
        if (below) bidi.HoldAt("XcvOpenPort");
        const HANDLE manager = host.InitializeAgain();
        HANDLE port = nullptr;
        ASSERT_TRUE(Open(bidi, L"IP_office", &port, manager));
        const unsigned connections = mute.Connections();
        std::thread asking([&] { EXPECT_EQ(Query(port, L"Get", {kModel}, nullptr), 995U); });
        const ULONGLONG deadline = GetTickCount64() + 10'000;
        while ((below ? !bidi.Holds(0) : mute.Connections() == connections) && GetTickCount64() < deadline)
            Sleep(10);
        const ULONGLONG begin = GetTickCount64();
        table.pfnShutdown(manager);
        EXPECT_LE(GetTickCount64() - begin, 4'000U);
        if (below) bidi.LetGo();
        asking.join();
        EXPECT_EQ(bidi.bidiCalls, 0);
        EXPECT_FALSE(Write(port));
        EXPECT_EQ(GetLastError(), 1461U);
        if (below) bidi.openChannels = 0;  // the channel stays open: nothing below is called
    }
}

TEST_F(BidiLoadTest, MutePrinterDelaysNobodyElse) {
    constexpr size_t kPorts = 16;
    std::vector<std::unique_ptr<ScriptedServer>> printers;
    std::vector<BidiLowerMonitor> below(kPorts);
    std::vector<OpenedPort> ports;
    for (size_t i = 0; i < kPorts; ++i) {
        printers.push_back(std::make_unique<ScriptedServer>(i == 0 ? Script{Hold()} : WellBehaved()));
        below[i].address = TcpAddress(*printers[i]);
        below[i].entries = kBelow;
        ports.push_back(MustOpen(below[i], L"IP_port" + std::to_wstring(i)));
    }
    std::vector<ULONGLONG> elapsed(kPorts);
    std::vector<std::thread> threads;
    std::atomic<size_t> found{0};
    const ULONGLONG start = GetTickCount64();
    for (size_t i = 0; i < kPorts; ++i) {
        threads.emplace_back([&, i] {
            Lines lines;
            EXPECT_EQ(Query(ports[i], L"Get", {kModel}, &lines), 0U);
            elapsed[i] = GetTickCount64() - start;
            if (!lines.empty() && lines[0].ends_with(L"VP-4200C")) ++found;
            EXPECT_TRUE(lines.size() == (i == 0 ? 2U : 3U));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(found, kPorts - 1);
    // The printer's time-out is 5 s.
    EXPECT_GE(elapsed[0], 4'500U);
    EXPECT_LT(elapsed[0], 15'000U);
    for (size_t i = 1; i < kPorts; ++i)
        EXPECT_LT(elapsed[i], 4'500U) << "port " << i << " waited for the mute printer";
}

}  // namespace
}  // namespace vlm::test
