// One Bidi query from the spooler's call to its answer: who is asked, and whose answer wins.
#include <array>
#include <functional>

#include "monitor/bidi_routing.h"
#include "monitor/lm_manager.h"
#include "monitor/process_state.h"
#include "tests/monitor/bidi_fixture.h"
#include "tests/support/text.h"

namespace vlm::test {
namespace {

using BidiQueryTest = BidiPortTest;

constexpr wchar_t kSpeed[] = L"\\Printer.DeviceInfo:PagesPerMinute";
constexpr wchar_t kModelLine[] = L"100 0 \\Printer.DeviceInfo:ModelName STRING Velun VP-4200C";

TEST_F(BidiQueryTest, PrinterAnswersOnEachKindOfNetworkPort) {
    ScriptedServer printer(WellBehaved());
    bidi.bidiCode = ERROR_NOT_SUPPORTED;
    for (const auto kind : {BidiLowerMonitor::kTcp, BidiLowerMonitor::kWsd}) {
        bidi.kind = kind;
        PointTo(printer);
        const OpenedPort port = MustOpen(bidi, kind == BidiLowerMonitor::kTcp ? L"IP_office" : L"WSD-office");
        Lines lines;
        EXPECT_EQ(Query(port, L"Get", {kModel, L"\\Printer.Configuration.Memory", L"\\Printer.None"}, &lines),
                  0U);
        EXPECT_EQ(lines, (Lines{kModelLine, L"101 0 \\Printer.Configuration.Memory:Size INT 4096",
                                L"101 0 \\Printer.Configuration.Memory:Free INT 3120",
                                L"102 232 \\Printer.None NULL"}));
        const std::string asked = printer.LastRequest();
        EXPECT_NE(asked.find("PrinterDescription"), std::string::npos);
        EXPECT_NE(asked.find("PrinterConfiguration"), std::string::npos);
        EXPECT_EQ(asked.find("PrinterStatus"), std::string::npos);
    }
    EXPECT_EQ(bidi.urlCalls, 1);
}

TEST_F(BidiQueryTest, EngineWinsUnlessOnlyTheLowerMonitorSucceeded) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    const wchar_t* unknown = L"\\Printer.None:Leaf";
    struct Row {
        const char* what;
        std::vector<LowerEntry> lower;
        Lines expected;
    };
    const std::wstring unknownLine = L"101 232 \\Printer.None:Leaf NULL";
    const Row rows[] = {
        {"nothing below", {}, {kModelLine, unknownLine}},
        {"both succeed", {{100, 0, kModel, L"below"}}, {kModelLine, unknownLine}},
        {"only the lower one succeeds",
         {{101, 0, unknown, L"below"}},
         {kModelLine, L"101 0 \\Printer.None:Leaf STRING below"}},
        {"both fail, in different ways", {{101, 50, unknown, L""}}, {kModelLine, unknownLine}},
        {"same schema, other request",
         {{7, 0, kModel, L"below"}, {100, 0, unknown, L"other"}},
         {kModelLine, unknownLine, L"7 0 \\Printer.DeviceInfo:ModelName STRING below",
          L"100 0 \\Printer.None:Leaf STRING other"}},
        {"same schema but for case",
         {{101, 0, L"\\PRINTER.None:Leaf", L"below"}},
         {kModelLine, unknownLine, L"101 0 \\PRINTER.None:Leaf STRING below"}},
        {"a failure that the engine was not asked for",
         {{9, 5, L"\\Other", L""}, {101, 0, unknown, L"below"}},
         {kModelLine, L"101 0 \\Printer.None:Leaf STRING below", L"9 5 \\Other NULL"}},
        {"the first of two entries for one question counts",
         {{101, 5, unknown, L""}, {101, 0, unknown, L"late"}},
         {kModelLine, unknownLine}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        bidi.entries = row.lower;
        Lines lines;
        EXPECT_EQ(Query(port, L"GetAll", {kModel, unknown}, &lines), 0U);
        EXPECT_EQ(lines, row.expected);
    }
}

TEST_F(BidiQueryTest, LowerAnswerSurvivesEveryFailureOfThePrinter) {
    const ScriptedServer well(WellBehaved());
    struct Row {
        const char* what;
        std::function<void(BidiLowerMonitor&)> arrange;
        const wchar_t* schema = kModel;
        Script script = {};  // another printer's, when not empty
    };
    const auto nothing = [](BidiLowerMonitor&) {};
    const auto address = [](const std::wstring& text) {
        return [text](BidiLowerMonitor& below) { below.address = text; };
    };
    const auto url = [](const std::wstring& text, BIDI_TYPE type, DWORD code) {
        return [=](BidiLowerMonitor& below) {
            below.kind = BidiLowerMonitor::kWsd;
            below.address = text;
            below.urlType = type;
            below.urlCode = code;
        };
    };
    std::wstring tooLong = well.Url();
    tooLong.resize(260, L'x');
    const Row rows[] = {
        {"connection refused", address(L"127.0.0.1:1")},
        {"no address", address(L"")},
        {"an address that is none", address(L"ftp://:0")},
        {"an address without end", address(std::wstring(409, L'x'))},
        {"404 with a page", nothing, kModel, Answer(Http("404 Not Found", "<html/>"))},
        {"200 with a page", nothing, kModel, Answer(Http("200 OK", "<html/>"))},
        {"no XML", nothing, kModel, Answer(Http("200 OK", "busy"))},
        {"closes at once", nothing, kModel, {Reset()}},
        {"no such printer in the spooler", [&](BidiLowerMonitor&) { spooler.Reset(); }},
        {"a driver without extension files", [&](BidiLowerMonitor&) { AddPrinter(L"IP_office", L""); }},
        {"no path is known", nothing, L"\\Printer.None"},
        {"a path that cannot be looked up", nothing, L"\\Printer's"},
        {"an entry without schema", nothing, nullptr},
        {"no channel operations", [](auto& below) { below.table.pfnXcvOpenPort = nullptr; }},
        {"a channel that cannot be asked", [](auto& below) { below.table.pfnXcvDataPort = nullptr; }},
        {"a channel that cannot be closed", [](auto& below) { below.table.pfnXcvClosePort = nullptr; }},
        {"the channel does not open",
         [](auto& below) {
             below.answer = [](const char* call) { return std::string(call) != "XcvOpenPort"; };
         }},
        {"the channel has no answer", [](auto& below) { below.configCode = ERROR_ACCESS_DENIED; }},
        {"the channel throws", [](auto& below) { below.channelThrows = true; }},
        {"no URL", url(well.Url(), BIDI_STRING, ERROR_NOT_SUPPORTED)},
        {"a URL that is a number", url(well.Url(), BIDI_INT, 0)},
        {"a URL without value", url(well.Url(), BIDI_NULL, 0)},
        {"a URL one character too long", url(tooLong, BIDI_STRING, 0)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const ScriptedServer printer(row.script);
        AddPrinter(L"IP_office");
        BidiLowerMonitor below;
        below.address = TcpAddress(row.script.empty() ? well : printer);
        row.arrange(below);
        OpenedPort port = MustOpen(below, L"IP_office");
        below.entries = {{100, 0, L"\\Below", L"here"}};
        Lines lines;
        EXPECT_EQ(Query(port, L"Get", {row.schema}, &lines), 0U);
        EXPECT_EQ(lines, Lines{L"100 0 \\Below STRING here"});
        // Both fail: the lower monitor's code, whatever became of the printer.
        below.bidiCode = ERROR_NOT_READY;
        EXPECT_EQ(Query(port, L"Get", {row.schema}, &lines), DWORD{ERROR_NOT_READY});
        // Nothing below to put in its place.
        below.bidiCode = 0;
        below.entries.clear();
        EXPECT_EQ(Query(port, L"Get", {row.schema}, &lines), DWORD{ERROR_NO_DATA});
        // The last of both to fail is asked last and throws.
        below.throws = true;
        EXPECT_EQ(Query(port, L"Get", {row.schema}, &lines), DWORD{ERROR_FUNCTION_FAILED});
        EXPECT_TRUE(port.Close());
        EXPECT_EQ(below.openChannels, 0);
        EXPECT_EQ(spooler.OpenHandles(), 0);
    }
}

// Nor does an answer that costs more than a query may: it is given up in time, and the next one is answered.
TEST_F(BidiQueryTest, HostileAnswerIsGivenUpAndTheNextQueryWorks) {
    const std::string start =
        "<s:Envelope xmlns:s='http://www.w3.org/2003/05/soap-envelope' "
        "xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print'><s:Body>";
    const std::string open =
        "<pri:PrinterStatus><pri:ActiveConditions><pri:DeviceCondition Id='1'><pri:Component>";
    const std::string close =
        "</pri:Component></pri:DeviceCondition></pri:ActiveConditions></pri:PrinterStatus>";
    std::string prefixes;
    for (int i = 0; i < 40'000; ++i)
        prefixes += " xmlns:n" + std::to_string(i) + "='u'";
    const struct {
        const char* what;
        std::string answer;
    } kRows[] = {
        {"nested elements share a long text",
         Repeat(22, open) + std::string(1'000'000, 'x') + Repeat(22, close)},
        {"conditions that are compared with each other",
         "<pri:PrinterStatus><pri:ActiveConditions>" +
             Repeat(3'000,
                    "<pri:DeviceCondition Id='1'><pri:Component>P</pri:Component></pri:DeviceCondition>") +
             "</pri:ActiveConditions></pri:PrinterStatus>"},
        {"more nodes than an answer may have", Repeat(30'000, "<pri:a/>")},
        {"declarations in scope", "<pri:N" + prefixes + ">" + Repeat(10'000, "<pri:a/>") + "</pri:N>"},
        {"a long prefix for many elements", "<N xmlns='urn:l' xmlns:" + std::string(16'000, 'p') +
                                                "='urn:l'>" + Repeat(19'000, "<p:a/>") + "</N>"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.what);
        const ScriptedServer hostile(Answer(Http("200 OK", start + row.answer + "</s:Body></s:Envelope>")));
        const ScriptedServer printer(WellBehaved());
        BidiLowerMonitor below;
        below.address = TcpAddress(hostile);
        below.entries = {{100, 0, L"\\Below", L"here"}};
        const OpenedPort port = MustOpen(below, L"IP_office");
        Lines lines;
        EXPECT_EQ(Query(port, L"GetAll", {L"\\"}, &lines), 0U);
        EXPECT_EQ(lines, Lines{L"100 0 \\Below STRING here"});
        below.address = TcpAddress(printer);
        EXPECT_EQ(Query(port, L"Get", {kModel}, &lines), 0U);
        EXPECT_EQ(lines.front(), kModelLine);
    }
}

TEST_F(BidiQueryTest, LongestUrlThatFitsIsUsed) {
    ScriptedServer printer(WellBehaved());
    bidi.kind = BidiLowerMonitor::kWsd;
    bidi.bidiCode = ERROR_NOT_SUPPORTED;
    PointTo(printer);
    bidi.address.resize(259, L'x');
    const OpenedPort port = MustOpen(bidi, L"WSD-office");
    EXPECT_EQ(Query(port, L"Get", {kModel}, nullptr), 0U);
    EXPECT_NE(printer.LastRequest().find("xxx HTTP/1.0"), std::string::npos);
}

TEST_F(BidiQueryTest, LowerMonitorThatThrowsDoesNotCostThePrintersAnswer) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    bidi.throws = true;
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    Lines lines;
    EXPECT_EQ(Query(port, L"Get", {kModel}, &lines), 0U);
    EXPECT_EQ(lines, Lines{kModelLine});
}

TEST_F(BidiQueryTest, OtherActionsGoDownOnly) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    bidi.entries = {{100, 0, L"\\Below", L"here"}};
    for (const wchar_t* action : {L"Set", L"GetWithArgument", L"get", L""}) {
        Lines lines;
        EXPECT_EQ(Query(port, action, {kModel}, &lines), 0U);
        EXPECT_EQ(lines, Lines{L"100 0 \\Below STRING here"});
        bidi.bidiCode = ERROR_ACCESS_DENIED;
        EXPECT_EQ(Query(port, action, {kModel}, &lines), DWORD{ERROR_ACCESS_DENIED});
        bidi.bidiCode = 0;
    }
    EXPECT_EQ(bidi.bidiCalls, 8);
    EXPECT_EQ(bidi.lastAccess, DWORD{PRINTER_ACCESS_USE});
    EXPECT_EQ(printer.Connections(), 0U);
}

TEST_F(BidiQueryTest, EnumSchemaGoesDownUntouched) {
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    const Request request({kModel});
    auto* asked = const_cast<BIDI_REQUEST_CONTAINER*>(request.Get());
    BIDI_RESPONSE_CONTAINER* answer = nullptr;
    bidi.entries = {{1, 0, L"\\Below", L"here"}};
    EXPECT_EQ(table.pfnSendRecvBidiDataFromPort(port, 5, L"EnumSchema", asked, &answer), 0U);
    EXPECT_EQ(bidi.lastRequest, asked);
    EXPECT_EQ(bidi.lastResponse, &answer);
    EXPECT_EQ(bidi.lastAccess, 5U);
    RouterFreeBidiResponseContainer(answer);
    bidi.bidiCode = 1234;
    EXPECT_EQ(table.pfnSendRecvBidiDataFromPort(port, 5, L"EnumSchema", asked, &answer), 1234U);
}

TEST_F(BidiQueryTest, RefusesWhatItCannotAnswerWithoutAskingAnybody) {
    const OpenedPort port = MustOpen(bidi, L"IP_office");
    const Request request({kModel});
    auto* asked = const_cast<BIDI_REQUEST_CONTAINER*>(request.Get());
    BIDI_RESPONSE_CONTAINER* answer = nullptr;
    const auto ask = table.pfnSendRecvBidiDataFromPort;
    EXPECT_EQ(ask(port, 0, nullptr, asked, &answer), 87U);
    EXPECT_EQ(ask(port, 0, L"Get", nullptr, &answer), 87U);
    EXPECT_EQ(ask(port, 0, L"Get", asked, nullptr), 87U);
    EXPECT_EQ(Query(port, L"Get", {}, nullptr), DWORD{ERROR_NO_DATA});
    AddPrinter(L"IP_office,IP_other");
    for (const wchar_t* action : {L"Get", L"Set", L"EnumSchema"})
        EXPECT_EQ(ask(port, 0, action, asked, &answer), DWORD{ERROR_NOT_SUPPORTED});
    EXPECT_EQ(bidi.bidiCalls, 0);
    EXPECT_EQ(answer, nullptr);
}

TEST_F(BidiQueryTest, PortWithNobodyToAskAnswersOneEmptyEntry) {
    LowerMonitor withoutBidi;
    const std::pair<LowerMonitor*, const wchar_t*> ports[] = {
        {&bidi, L"USB001"}, {&bidi, L"usbX"}, {&withoutBidi, L"IP_office"}};
    for (const auto& [below, name] : ports) {
        const OpenedPort port = MustOpen(*below, name);
        Lines lines;
        for (const wchar_t* action : {L"Get", L"Set", L"EnumSchema"}) {
            EXPECT_EQ(Query(port, action, {kModel, kSpeed}, &lines), 0U);
            EXPECT_EQ(lines, Lines{L"100 232 \\Printer.DeviceInfo:ModelName NULL"});
        }
        for (const wchar_t* schema : {L"", static_cast<const wchar_t*>(nullptr)}) {
            EXPECT_EQ(Query(port, L"Get", {schema}, &lines), 0U);
            EXPECT_EQ(lines, Lines{L"100 14 (null) NULL"});
        }
        EXPECT_EQ(Query(port, L"Get", {}, &lines), 0U);
        EXPECT_EQ(lines, Lines{L"0 14 (null) NULL"});
        const Request request({kModel});
        auto* asked = const_cast<BIDI_REQUEST_CONTAINER*>(request.Get());
        BIDI_RESPONSE_CONTAINER* answer = nullptr;
        EXPECT_EQ(table.pfnSendRecvBidiDataFromPort(port, 0, nullptr, nullptr, &answer), 87U);
        EXPECT_EQ(table.pfnSendRecvBidiDataFromPort(port, 0, nullptr, asked, nullptr), 87U);
        asked->Flags = 2;
        ASSERT_EQ(table.pfnSendRecvBidiDataFromPort(port, 0, L"Get", asked, &answer), 0U);
        EXPECT_EQ(answer->Version, 1U);
        EXPECT_EQ(answer->Flags, 2U);
        RouterFreeBidiResponseContainer(answer);
        router.ResetAllocations(1);
        EXPECT_EQ(Query(port, L"Get", {kModel}, &lines), DWORD{ERROR_OUTOFMEMORY});
        router.ResetAllocations(2);
        EXPECT_EQ(Query(port, L"Get", {kModel}, &lines), 0U);
        EXPECT_EQ(lines, Lines{L"100 14 (null) NULL"});
        router.ResetAllocations(0);
    }
    EXPECT_EQ(bidi.bidiCalls, 0);
}

// Asked of the manager itself: from outside only the question for a printer's URL leads here.
TEST_F(BidiQueryTest, StringOfOneSchemaComesFromTheEngineOrFromBelow) {
    const ScriptedServer printer(WellBehaved());
    PointTo(printer);
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    AttachProcess(GetModuleHandleW(nullptr));
    {
        CLmMgr manager(nullptr);
        LmPort* port = nullptr;
        {
            const LockGuard guard(processState.monitorLock);
            port = manager.CreatePort(&bidi, L"IP_office", L"Office");
        }
        port->lower.base = bidi.table;
        port->lowerPort = &bidi;
        const struct {
            const wchar_t* schema;
            size_t capacity;
            DWORD code;
            const wchar_t* text = L"";
            bool viaLower = false;
        } kCases[] = {
            {kModel, sizeof "Velun VP-4200C", 0, L"Velun VP-4200C"},
            {kModel, sizeof "Velun VP-4200C" - 1, ERROR_INSUFFICIENT_BUFFER},
            {kSpeed, 100, ERROR_INVALID_PARAMETER},  // a number
            {nullptr, 100, ERROR_INVALID_PARAMETER},
            {kModel, 100, ERROR_NO_DATA, L"", true},
            {L"", 100, ERROR_INVALID_PARAMETER, L"", true},
        };
        for (const auto& test : kCases) {
            std::array<wchar_t, 100> text{};
            EXPECT_EQ(GetBidiString(*port, test.schema, text.data(), test.capacity, test.viaLower),
                      test.code);
            EXPECT_STREQ(text.data(), test.text);
        }
        EXPECT_EQ(GetBidiString(*port, kModel, nullptr, 100, false), DWORD{ERROR_INVALID_PARAMETER});
        bidi.entries = {{0, 0, kModel, L"below"}};
        std::array<wchar_t, 6> text{};
        EXPECT_EQ(GetBidiString(*port, kModel, text.data(), text.size(), true), 0U);
        EXPECT_STREQ(text.data(), L"below");
    }
    DetachProcess(false);
}

}  // namespace
}  // namespace vlm::test
