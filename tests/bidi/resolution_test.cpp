// Paths, answers, actions.
#include <string>

#include "tests/bidi/engine_fixture.h"

namespace vlm {
namespace {

using Lines_ = std::vector<std::wstring>;

const char kTree[] =
    "<Property name='Printer'>"
    "<Value name='Name' filter='w:Name'/>"
    "<Property name='Layout'>"
    "<Value name='Sides' type='BIDI_INT' filter='w:Sides'/>"
    "<Installed name='Duplex' filter='w:Duplex[@on=\"1\"]'/>"
    "<Installed name='Stapler' filter='w:Stapler'/>"
    "<List name='Trays' filter='w:Tray'/>"
    "<List name='Nothing' filter='w:NoSuch'/>"
    "<Value name='Missing' filter='w:NoSuch'/>"
    "<Unknown name='Other' filter='***'/>"
    "</Property>"
    "<Property name='Empty'/>"
    "<Const name='Vendor'>Velun</Const>"
    "</Property>"
    "<Const name='Top' type='BIDI_INT'>1</Const>";

std::wstring Printer() {
    return test::Answer(
        L"<wprt:Name> Office  </wprt:Name><wprt:Sides>2</wprt:Sides><wprt:Duplex on='1'/>"
        L"<wprt:Tray>A</wprt:Tray><wprt:Tray/><wprt:Tray> B,1 </wprt:Tray><wprt:Sides>3</wprt:Sides>");
}

class Resolution : public test::EngineTest {};

TEST_F(Resolution, GetAnswersEachEntryInRequestOrder) {
    const auto engine = Engine({test::Extension(kTree)}, Printer());
    EXPECT_EQ(Lines(*engine, L"Get",
                    {L"\\Printer.Layout:Sides", L"\\no.such:path", L"\\Printer:Name", L"\\Printer.Layout",
                     L"\\Printer.Layout:Missing", L"\\Printer:Name", L"", L"Printer:Name", L"\\Top"}),
              (Lines_{L"100 0 \\Printer.Layout:Sides INT 2", L"101 232 \\no.such:path NULL",
                      L"102 0 \\Printer:Name STRING Office",
                      // Only a leaf, by its full name, is something to get.
                      L"103 232 \\Printer.Layout NULL", L"104 232 \\Printer.Layout:Missing NULL",
                      L"105 0 \\Printer:Name STRING Office", L"106 232  NULL", L"107 232 Printer:Name NULL",
                      L"108 0 \\Top INT 1"}));
}

TEST_F(Resolution, GetAllAnswersEveryLeafBelowAPath) {
    const auto engine = Engine({test::Extension(kTree)}, Printer());
    EXPECT_EQ(
        Lines(*engine, L"GetAll", {L"\\Printer.Layout", L"\\no", L"\\Printer:Vendor", L"\\Printer.Empty"}),
        (Lines_{L"100 0 \\Printer.Layout:Sides INT 2", L"100 0 \\Printer.Layout:Duplex BOOL TRUE",
                L"100 0 \\Printer.Layout:Stapler BOOL FALSE", L"100 0 \\Printer.Layout:Trays STRING A,,B,1",
                L"100 232 \\Printer.Layout:Nothing NULL", L"100 232 \\Printer.Layout:Missing NULL",
                L"101 232 \\no NULL", L"102 0 \\Printer:Vendor STRING Velun",
                L"103 232 \\Printer.Empty NULL"}));
    const Lines_ all = Lines(*engine, L"GetAll", {L"\\"});
    ASSERT_EQ(all.size(), 9u);
    EXPECT_EQ(all.front(), L"100 0 \\Printer:Name STRING Office");
    EXPECT_EQ(all.back(), L"100 0 \\Top INT 1");
}

TEST_F(Resolution, PathsAreSplitAtSeparatorsAndAnsweredAsRequested) {
    const auto engine = Engine({test::Extension(kTree)}, Printer());
    const struct {
        const wchar_t* path;
        const wchar_t* expected;
    } kCases[] = {
        {L"Printer:Vendor", L"100 0 Printer:Vendor STRING Velun"},
        {L"\\\\Printer..:Vendor", L"100 0 \\\\Printer..:Vendor STRING Velun"},
        {L"\\Printer\\Layout:Sides", L"100 0 \\Printer\\Layout:Sides INT 2"},
        {L"\\Printer.Layout:Sides:x", L"100 232 \\Printer.Layout:Sides:x NULL"},
        {L"\\Printer.Layout.Sides", L"100 232 \\Printer.Layout.Sides NULL"},
        {L"\\Printer:", L"100 232 \\Printer: NULL"},
        {L"\\printer:Vendor", L"100 232 \\printer:Vendor NULL"},
        {L"\\Printer:Other", L"100 232 \\Printer:Other NULL"},
        {L"\\Printer.Layout]:\"Sides\"", L"100 232 \\Printer.Layout]:\"Sides\" NULL"},
        {L"\\<&>", L"100 232 \\<&> NULL"},
        {L"\\Printer:Ven\x01", L"100 232 \\Printer:Ven\x01 NULL"},
        {L"\\:Top", L"100 0 \\:Top INT 1"},
    };
    for (const auto& test : kCases) {
        EXPECT_EQ(Lines(*engine, L"GetAll", {test.path}), Lines_{test.expected});
    }
    const std::wstring longPath = L"\\" + std::wstring(65'536, L'x');
    EXPECT_EQ(Lines(*engine, L"GetAll", {longPath.c_str()}), Lines_{L"100 232 " + longPath + L" NULL"});
    const std::wstring manyLevels = L"\\Printer" + std::wstring(65'536, L'.') + L":Vendor";
    EXPECT_EQ(Lines(*engine, L"GetAll", {manyLevels.c_str()}).size(), 1u);
}

// What the XPath of the path would find first, in a tree where levels repeat and names are odd.
TEST_F(Resolution, FindsWhatXPathFinds) {
    const auto engine = Engine(
        {test::Extension(
            "<Property name='A'><Const name='first'>1</Const></Property>"
            "<Property name='A'><Property name='B'><Const name='x'>2</Const></Property></Property>"
            "<Property name='A'><Property name='B'><Const name='x'>3</Const><Const name='y'>4</Const>"
            "</Property></Property>"
            "<Other name='A'><Const name='z'>5</Const></Other><Property><Const name='n'>6</Const></Property>"
            "<Property name=' '><Const name='x]'>7</Const><Const name='&quot;'>8</Const><Const "
            "name=''>9</Const>"
            "</Property>")},
        Printer());
    EXPECT_EQ(Lines(*engine, L"GetAll",
                    {L"\\A:first", L"\\A.B:x", L"\\A.B:y", L"\\A:z", L"\\A.B:z", L"\\:n", L"\\ :x]",
                     L"\\ :\"", L"\\ :", L"\\A.A:first", L"\\B:x"}),
              (Lines_{L"100 0 \\A:first STRING 1", L"101 0 \\A.B:x STRING 2", L"102 0 \\A.B:y STRING 4",
                      L"103 232 \\A:z NULL", L"104 232 \\A.B:z NULL", L"105 232 \\:n NULL",
                      L"106 0 \\ :x] STRING 7", L"107 0 \\ :\" STRING 8", L"108 0 \\ : STRING 9",
                      L"109 232 \\A.A:first NULL", L"110 232 \\B:x NULL"}));
}

TEST_F(Resolution, PathWithAnApostropheFailsTheCall) {
    const auto engine = Engine({test::Extension(kTree)}, Printer());
    Ask(*engine, L"Get", {L"\\Printer:Name", L"\\It's"}, E_FAIL);
    Ask(*engine, L"GetAll", {L"\\Printer' or '1'='1"}, E_FAIL);
    Enum(*engine, {L"\\It's"}, E_FAIL);
    EXPECT_TRUE(trace_.HasPart(L"(file=velunbidispl, line="));
}

TEST_F(Resolution, GetSeesTheFirstOfTwoLeavesAndOnlyTheFirstSchema) {
    const auto engine = Engine(
        {test::Extension(
            "<Const name='L'>one</Const><Value name='L' filter='w:Name'/></Schema><Schema name='second'>"
            "<Const name='M'>two</Const>")},
        Printer());
    EXPECT_EQ(Lines(*engine, L"Get", {L"\\L", L"\\M"}),
              (Lines_{L"100 0 \\L STRING one", L"101 232 \\M NULL"}));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\:M"}), Lines_{L"100 0 \\:M STRING two"});
}

TEST_F(Resolution, AnswerDocumentHoldsOneSchemaPerLeaf) {
    const auto engine = Engine({test::Extension(kTree)}, Printer());
    const auto ask = [&](const wchar_t* path) {
        _bstr_t text;
        EXPECT_EQ(engine->SendRecvXMLString(path, text.GetAddress()), S_OK);
        return std::wstring(text);
    };
    const std::wstring start =
        L"<bidi:Get xmlns:bidi='http://schemas.microsoft.com/windows/2005/03/printing/bidi'><Query schema='";
    const std::wstring layout = L"<Schema name='\\Printer.Layout:";
    EXPECT_EQ(ask(L"\\Printer.Layout"),
              start + L"\\Printer.Layout'>" + layout + L"Sides'><BIDI_INT>2</BIDI_INT></Schema>" + layout +
                  L"Duplex'><BIDI_BOOL>true</BIDI_BOOL></Schema>" + layout +
                  L"Stapler'><BIDI_BOOL>false</BIDI_BOOL></Schema>" + layout +
                  L"Trays'><BIDI_STRING>A,,B,1</BIDI_STRING></Schema>" + layout +
                  L"Nothing'><Error/></Schema>" + layout + L"Missing'><Error/></Schema></Query></bidi:Get>");
    // An unknown path is no failure.
    EXPECT_EQ(ask(L"\\<none>\t& \"none\""),
              start + L"\\&lt;none&gt;&#9;&amp; &quot;none&quot;'><Error/></Query></bidi:Get>");
    CXMLDoc document;
    for (const wchar_t* path : {L"\\Printer:Vendor", L"\\Top"}) {  // the document is used again
        ASSERT_EQ(engine->SendRecvXMLString(path, document), S_OK);
        EXPECT_EQ(TextOf(document.SelectSingleNode(L"//@schema").Get()), path);
    }
}

TEST_F(Resolution, ArgumentsAndOrderOfCallsAreChecked) {
    CVelunBidiSpl engine;
    const test::Request request({L"\\"});
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    _bstr_t text;
    CXMLDoc answer;
    EXPECT_EQ(engine.EnumQueryElement(request.Get(), text.GetAddress()), E_FAIL);
    EXPECT_TRUE(trace_.Has(L"CVelunBidiSpl::EnumQueryElement - Error: must call init first\r\n"));
    EXPECT_EQ(engine.SendRecvXMLString(L"\\", answer), E_FAIL);
    EXPECT_TRUE(trace_.Has(L"CVelunBidiSpl::SendRecvXMLString - Error: must call init first\r\n"));
    EXPECT_EQ(engine.SetGetPrinterElementResponseData(Printer().c_str()), E_FAIL);
    EXPECT_EQ(engine.Init(L"Office", nullptr), E_INVALIDARG);

    ASSERT_EQ(engine.Init(L"Office", FileList({test::Extension(kTree)}).c_str()), S_OK);
    EXPECT_EQ(engine.SendRecvXMLString(L"\\", answer), E_FAIL);
    EXPECT_TRUE(trace_.Has(
        L"CVelunBidiSpl::SendRecvXMLString - Error: must call SetGetPrinterElementResponseData first\r\n"));
    EXPECT_EQ(answer.Document(), nullptr);
    // "Get" asks for its container before anything else, and gives it back.
    router_.ResetAllocations(0);
    EXPECT_EQ(engine.SendRecvBidiDataFromPort(L"Get", request.Get(), &response), E_FAIL);
    EXPECT_EQ(router_.Counters().allocations, 1);
    // A second Init does nothing, not even look at its list.
    EXPECT_EQ(engine.Init(L"Office", L"<no list"), S_OK);

    ASSERT_EQ(engine.SetGetPrinterElementResponseData(Printer().c_str()), S_OK);
    EXPECT_EQ(engine.SetGetPrinterElementResponseData(nullptr), E_INVALIDARG);
    EXPECT_EQ(engine.EnumQueryElement(nullptr, text.GetAddress()), E_INVALIDARG);
    EXPECT_EQ(engine.EnumQueryElement(request.Get(), nullptr), E_INVALIDARG);
    EXPECT_EQ(engine.SendRecvXMLString(nullptr, text.GetAddress()), E_INVALIDARG);
    EXPECT_EQ(engine.SendRecvXMLString(L"\\", static_cast<BSTR*>(nullptr)), E_INVALIDARG);
    EXPECT_EQ(engine.SendRecvBidiDataFromPort(nullptr, request.Get(), &response), E_INVALIDARG);
    EXPECT_EQ(engine.SendRecvBidiDataFromPort(L"Get", nullptr, &response), E_INVALIDARG);
    EXPECT_EQ(engine.SendRecvBidiDataFromPort(L"Get", request.Get(), nullptr), E_INVALIDARG);
    for (const wchar_t* action : {L"Set", L"EnumSchema", L"get", L""})
        Ask(engine, action, {L"\\"}, E_INVALIDARG);
    for (const wchar_t* action : {L"Get", L"GetAll"})
        Ask(engine, action, {L"\\", nullptr}, E_INVALIDARG);
    Enum(engine, {L"\\", nullptr}, E_INVALIDARG);
}

TEST_F(Resolution, RequestsOfAnySizeAreAnswered) {
    const auto engine = Engine({test::Extension(kTree)}, Printer());
    for (const wchar_t* action : {L"Get", L"GetAll"}) {
        EXPECT_TRUE(Lines(*engine, action, {}).empty());
        const Lines_ lines = Lines(*engine, action, std::vector<const wchar_t*>(10'000, L"\\Printer:Vendor"));
        ASSERT_EQ(lines.size(), 10'000u);
        EXPECT_EQ(lines.back(), L"10099 0 \\Printer:Vendor STRING Velun");
    }
    // The whole tree, over and over, is bounded.
    Ask(*engine, L"GetAll", std::vector<const wchar_t*>(30'000, L"\\"),
        HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA));
}

TEST_F(Resolution, FilterThatIsNoXPathFailsTheCallAndIsNamed) {
    for (const std::string filter : {"w:Name[", "x:Name", "", "w:Name[@a='it's']", "//", "count(//w:Name)"}) {
        for (const std::string leaf : {"Value", "Installed", "List"}) {
            const auto engine =
                Engine({test::Extension("<" + leaf + " name='L' filter=\"" + filter + "\"/>")}, Printer());
            Ask(*engine, L"Get", {L"\\L"}, E_FAIL);
            Ask(*engine, L"GetAll", {L"\\L"});  // not a leaf's path: the filter is not run
            Ask(*engine, L"GetAll", {L"\\"}, E_FAIL);
            EXPECT_TRUE(engine->Reason().starts_with(L"filter " + std::wstring(filter.begin(), filter.end()) +
                                                     L" cannot be used: "));
            EXPECT_TRUE(engine->Reason().ends_with(L".xml"));
        }
    }
}

}  // namespace
}  // namespace vlm
