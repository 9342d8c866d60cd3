// The table of operations, the handle tests of all of them, and how ports open and close.
#include <cstring>
#include <string>
#include <tuple>

#include "tests/monitor/port_fixture.h"
#include "util/text.h"

namespace vlm::test {
namespace {

using OpeningTest = PortTest;

TEST_F(OpeningTest, InitializationNeedsBothArguments) {
    const Module module(LoadLibraryW(host::BesideProgram(L"vllm3mon.dll").c_str()));
    const auto initialize = EntryOf(module);
    ASSERT_NE(initialize, nullptr);
    MONITORINIT init{};
    HANDLE monitor = nullptr;
    for (const auto& [first, second] : {std::tuple{static_cast<MONITORINIT*>(nullptr), &monitor},
                                        std::tuple{&init, static_cast<HANDLE*>(nullptr)}}) {
        SetLastError(kPoison);
        EXPECT_EQ(initialize(first, second), nullptr);
        EXPECT_EQ(GetLastError(), 87U);
    }
}

TEST_F(OpeningTest, TableHoldsExactlyTheOperationsOfALanguageMonitor) {
    constexpr size_t kPowerEvent = 176;
    ASSERT_EQ(table.cbSize, kPowerEvent + sizeof(void*));
    void* powerEvent = host.Manager();
    std::memcpy(&powerEvent, reinterpret_cast<const BYTE*>(&table) + kPowerEvent, sizeof powerEvent);
    EXPECT_TRUE(table.pfnOpenPortEx && table.pfnStartDocPort && table.pfnWritePort && table.pfnReadPort &&
                table.pfnEndDocPort && table.pfnClosePort && table.pfnGetPrinterDataFromPort &&
                table.pfnShutdown && table.pfnSendRecvBidiDataFromPort);
    EXPECT_FALSE(table.pfnEnumPorts || table.pfnOpenPort || table.pfnAddPort || table.pfnAddPortEx ||
                 table.pfnConfigurePort || table.pfnDeletePort || table.pfnSetPortTimeOuts ||
                 table.pfnXcvOpenPort || table.pfnXcvDataPort || table.pfnXcvClosePort ||
                 table.pfnNotifyUsedPorts || table.pfnNotifyUnusedPorts || powerEvent);
}

TEST_F(OpeningTest, EveryOperationRefusesWhatIsNoOpenPort) {
    LmPort wrongSignature{};
    wrongSignature.signature = kLmPortSignature + 1;
    wrongSignature.owner = static_cast<CLmMgr*>(host.Manager());
    LmPort noOwner{};
    noOwner.signature = kLmPortSignature;

    struct Operation {
        const char* name;
        DWORD errorForNull;
        std::function<DWORD(HANDLE)> call;  // the error; kPoison when the call succeeded
    };
    const auto errorOf = [](BOOL result) { return result ? kPoison : GetLastError(); };
    const Operation operations[] = {
        {"StartDocPort", 87, [&](HANDLE port) { return errorOf(Start(port)); }},
        {"WritePort", 87, [&](HANDLE port) { return errorOf(Write(port)); }},
        {"ReadPort", 87, [&](HANDLE port) { return errorOf(Read(port)); }},
        {"EndDocPort", 87, [&](HANDLE port) { return errorOf(table.pfnEndDocPort(port)); }},
        {"ClosePort", 87, [&](HANDLE port) { return errorOf(table.pfnClosePort(port)); }},
        {"GetPrinterDataFromPort", 1461, [&](HANDLE port) { return errorOf(Control(port)); }},
        {"SendRecvBidiDataFromPort", 1461,
         [&](HANDLE port) { return table.pfnSendRecvBidiDataFromPort(port, 0, nullptr, nullptr, nullptr); }},
    };
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        SetLastError(kPoison);
        EXPECT_EQ(operation.call(nullptr), operation.errorForNull);
        EXPECT_EQ(operation.call(&wrongSignature), 1461U);
        EXPECT_EQ(operation.call(&noOwner), 1461U);
    }
}

TEST_F(OpeningTest, LowerMonitorNeedsTheFiveOperationsButNotEndDoc) {
    const std::tuple<const char*, std::function<void(MONITOR2&)>, bool> cases[] = {
        {"open", [](MONITOR2& t) { t.pfnOpenPort = nullptr; }, false},
        {"start", [](MONITOR2& t) { t.pfnStartDocPort = nullptr; }, false},
        {"write", [](MONITOR2& t) { t.pfnWritePort = nullptr; }, false},
        {"read", [](MONITOR2& t) { t.pfnReadPort = nullptr; }, false},
        {"close", [](MONITOR2& t) { t.pfnClosePort = nullptr; }, false},
        {"end", [](MONITOR2& t) { t.pfnEndDocPort = nullptr; }, true},
    };
    for (const auto& [name, remove, opens] : cases) {
        SCOPED_TRACE(name);
        LowerMonitor below;
        remove(below.table);
        HANDLE handle = nullptr;
        SetLastError(kPoison);
        EXPECT_EQ(Open(below, L"IP_" + FromUtf8(name), &handle), opens);
        EXPECT_EQ(GetLastError(), opens ? kPoison : 3007U);
        EXPECT_EQ(below.CountOf("OpenPort"), opens ? 1U : 0U);
    }
}

TEST_F(OpeningTest, RefusesWrongArgumentsInOrder) {
    wchar_t name[] = L"IP_x";
    wchar_t empty[] = L"";
    HANDLE port = nullptr;
    CLmMgr* const stranger = reinterpret_cast<CLmMgr*>(&name);
    const auto errorOf = [&](HANDLE monitor, LPWSTR portName, HANDLE* handle, MONITOR2* below) {
        SetLastError(kPoison);
        EXPECT_FALSE(table.pfnOpenPortEx(monitor, &lower, portName, name, handle, below));
        return GetLastError();
    };
    EXPECT_EQ(errorOf(nullptr, name, &port, nullptr), 3007U);
    EXPECT_EQ(errorOf(nullptr, name, &port, &lower.table), 1461U);
    EXPECT_EQ(errorOf(stranger, name, &port, &lower.table), 1461U);
    EXPECT_EQ(errorOf(host.Manager(), nullptr, &port, &lower.table), 87U);
    EXPECT_EQ(errorOf(host.Manager(), empty, &port, &lower.table), 87U);
    EXPECT_EQ(errorOf(host.Manager(), name, nullptr, &lower.table), 87U);
}

TEST_F(OpeningTest, NameIsBusyWhateverItsCaseUntilClosed) {
    for (const auto& [name, other] : {std::pair{L"IP_Office", L"ip_OFFICE"},
                                      {L"IP_B\u00FCro", L"ip_B\u00DCRO"},           // Latin
                                      {L"IP_\u03C0\u0416", L"ip_\u03A0\u0436"}}) {  // Greek, Cyrillic
        SCOPED_TRACE(name);
        OpenedPort port = MustOpen(lower, name);
        HANDLE second = nullptr;
        SetLastError(kPoison);
        EXPECT_FALSE(Open(lower, other, &second));
        EXPECT_EQ(GetLastError(), 170U);
        EXPECT_TRUE(port.Close());
        MustOpen(lower, other);
    }
    // Letters that are not the same, and none at all.
    const OpenedPort port = MustOpen(lower, L"IP_\u00FC");
    for (const wchar_t* other : {L"IP_u", L"IP_\u00FCx", L"IP_"})
        MustOpen(lower, other);
}

TEST_F(OpeningTest, LowerTableIsNotReadBeyondTheSizeItAnnounces) {
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    auto* pages =
        static_cast<BYTE*>(VirtualAlloc(nullptr, 2 * system.dwPageSize, MEM_RESERVE, PAGE_NOACCESS));
    VirtualAlloc(pages, system.dwPageSize, MEM_COMMIT, PAGE_READWRITE);
    constexpr DWORD kUpToShutdown = offsetof(MONITOR2, pfnShutdown) + sizeof(void*);
    for (const DWORD announced : {DWORD{148}, kUpToShutdown, DWORD{0}}) {
        SCOPED_TRACE(announced);
        // The table ends where the readable memory ends.
        auto* shorter = reinterpret_cast<MONITOR2*>(pages + system.dwPageSize - kUpToShutdown);
        memcpy(shorter, &lower.table, kUpToShutdown);
        shorter->cbSize = announced;
        wchar_t name[] = L"IP_old";
        HANDLE port = nullptr;
        ASSERT_TRUE(table.pfnOpenPortEx(host.Manager(), &lower, name, name, &port, shorter));
        EXPECT_EQ(Record(port).lower.base.pfnSendRecvBidiDataFromPort, nullptr);
        EXPECT_TRUE(Write(port));
        EXPECT_TRUE(table.pfnClosePort(port));
    }
    VirtualFree(pages, 0, MEM_RELEASE);
}

TEST_F(OpeningTest, JobLockIsANamedEventThatStartsSignalled) {
    const OpenedPort port = MustOpen(lower, L"IP_office");
    const KernelHandle event(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, L"ToviLM3BEvent_IP_office"));
    ASSERT_TRUE(event);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), DWORD{WAIT_TIMEOUT}) << "it resets itself";
    SetEvent(event.Get());
}

TEST_F(OpeningTest, PortWithANameNoEventCanBearOpensAndPrints) {
    const OpenedPort port = MustOpen(lower, L"C:\\spool\\port");
    EXPECT_EQ(Record(port).portEvent, nullptr);
    EXPECT_TRUE(Start(port));
    EXPECT_TRUE(Write(port));
    EXPECT_FALSE(table.pfnEndDocPort(port));
}

TEST_F(OpeningTest, ClosePortSucceedsWithTheLowerMonitorsErrorLeftInPlace) {
    OpenedPort port = MustOpen(lower, L"IP_office");
    lower.Fail(ERROR_NOT_READY);
    EXPECT_TRUE(port.Close());
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_READY});
    EXPECT_EQ(lower.CountOf("ClosePort"), 1U);
}

TEST_F(OpeningTest, ShutdownFreesOpenPortsWithoutCallingDown) {
    const HANDLE manager = host.InitializeAgain();
    HANDLE port = nullptr;
    ASSERT_TRUE(Open(lower, L"IP_left", &port, manager));
    ASSERT_TRUE(Start(port));
    EXPECT_EQ(spooler.OpenHandles(), 1);
    lower.ForgetCalls();
    table.pfnShutdown(manager);
    EXPECT_TRUE(lower.Calls().empty());
    EXPECT_EQ(spooler.OpenHandles(), 0);
    EXPECT_EQ(OpenEventW(SYNCHRONIZE, FALSE, L"ToviLM3BEvent_IP_left"), nullptr);

    for (const HANDLE notAManager : {HANDLE{nullptr}, manager}) {
        SetLastError(kPoison);
        table.pfnShutdown(notAManager);
        EXPECT_EQ(GetLastError(), 1461U);
    }
}

}  // namespace
}  // namespace vlm::test
