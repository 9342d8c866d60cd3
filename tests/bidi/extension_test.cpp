// Extension files: loading, merging, refusing; parameters; the names of the wanted elements.
#include <algorithm>

#include "bidi/parameters.h"
#include "tests/bidi/engine_fixture.h"
#include "tests/support/resources.h"

namespace vlm {
namespace {

using Lines_ = std::vector<std::wstring>;
constexpr HRESULT kRefused = static_cast<HRESULT>(0x8007000D);  // Win32's "the data is invalid"

std::string Repeat(const std::string& text, size_t times) {
    std::string repeated;
    repeated.reserve(text.size() * times);
    for (size_t i = 0; i < times; ++i)
        repeated += text;
    return repeated;
}

class ExtensionFiles : public test::EngineTest {};

TEST_F(ExtensionFiles, BadFileFailsInitAndSaysWhy) {
    const std::string head = "<d:D xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>";
    const struct {
        const char* what;
        std::string text;
        HRESULT expected;
        const wchar_t* traced;
    } kCases[] = {
        {"empty", "", E_FAIL, L"Error: Unable to load file "},
        {"truncated", head + "<Schema>", E_FAIL, L"Error: Unable to load file "},
        {"no Bidi namespace", "<D><Schema/></D>", E_FAIL,
         L"** XML Error: unable to find namespace "
         L"\"http://schemas.microsoft.com/windows/2005/03/printing/bidi\" **"},
        {"50 MB", head + std::string(50u << 20, ' ') + "</d:D>", kRefused, L"is too large"},
        {"10,000 levels", head + Repeat("<Property>", 10'000) + Repeat("</Property>", 10'000) + "</d:D>",
         kRefused, L"nests its elements too deeply"},
        {"a million elements", head + Repeat("<a/>", 1'000'000) + "</d:D>", kRefused,
         L"has too many elements and attributes"},
        {"entities",
         "<!DOCTYPE D [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>]>" + head +
             "&b;</d:D>",
         kRefused, L"has a document type declaration"},
    };
    for (const auto& test : kCases) {
        CVelunBidiSpl engine;
        EXPECT_EQ(engine.Init(L"Office", FileList({test.text}).c_str()), test.expected) << test.what;
        EXPECT_TRUE(trace_.HasPart(test.traced)) << test.what;
        // A failed Init can be repeated.
        EXPECT_EQ(engine.Init(L"Office", FileList({test::Extension("")}).c_str()), S_OK) << test.what;
    }
    EXPECT_TRUE(trace_.HasPart(L"(file=velunbidispl, line="));
    EXPECT_TRUE(trace_.Has(L"CVelunBidiSpl::Init for printer \"Office\" gives 0x8007000d\r\n"));
}

TEST_F(ExtensionFiles, BadListFailsInitAndSaysWhy) {
    const struct {
        const wchar_t* list;
        HRESULT expected;
        const wchar_t* traced;
    } kCases[] = {
        {L"<BidiExtensionFiles></BidiExtensionFiles>", E_FAIL,
         L"No extension files found in\r\n<BidiExtensionFiles></BidiExtensionFiles>\r\n"},
        {L"<BidiExtensionFiles><BidiXml path=\"a&b.xml\" />", E_FAIL, L"** XML Parse error "},
        {L"<x><BidiXml/></x>", E_FAIL, L"Error: Unable to load file \r\n"},
        {L"<x><BidiXml path='C:\\no\\such.xml'/></x>", E_FAIL,
         L"Error: Unable to load file C:\\no\\such.xml\r\n"},
        {L"<x><BidiXml path='\\\\.\\NUL'/></x>", kRefused, L"is not a file\r\n"},
        {L"<x><BidiXml path='http://127.0.0.1:9/a.xml'/></x>", kRefused, L"is not a file\r\n"},
    };
    for (const auto& test : kCases) {
        CVelunBidiSpl engine;
        EXPECT_EQ(engine.Init(nullptr, test.list), test.expected) << test.list;
        EXPECT_TRUE(trace_.HasPart(test.traced)) << test.list;
    }
}

TEST_F(ExtensionFiles, EncodingsAndMarkupThatAreNotThePointDoNotMatter) {
    std::string utf16 = "\xFF\xFE";
    for (const char c : test::Extension("<Const name='C'>text</Const>")) {
        utf16 += c;
        utf16 += '\0';
    }
    const std::string kinds[] = {
        utf16,
        "\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?><!-- c -->\n" +
            test::Extension("<!-- c --><?p i?>\n<Const name='C'>te<!-- c --><![CDATA[x]]>t</Const>"),
        "<?xml version='1.0' encoding='iso-8859-1'?>" + test::Extension("<Const name='C'>text</Const>"),
    };
    for (const std::string& text : kinds) {
        const auto engine = Engine({text}, test::Answer(L""));
        EXPECT_EQ(Lines(*engine, L"Get", {L"\\C"}), Lines_{L"100 0 \\C STRING text"});
    }
}

TEST_F(ExtensionFiles, LaterFilesAddAndNeverReplace) {
    const auto engine = Engine(
        {test::Extension("<Property name='P'><Const name='A'>1</Const></Property><Const name='T'>1</Const>"),
         test::Extension("<Property name='P'><Const name='A'>2</Const><Const name='B'>2</Const>"
                         "<Property name='Q'><Const name='C'>2</Const></Property></Property>"
                         "<Value name='T' filter='x'/>"),
         test::Extension(
             "<Property name='P'><Property name='Q'><Const name='C'>3</Const><Const name='D'>3</Const>"
             "</Property></Property><Const name='U'>3</Const><Const name='U'>4</Const>")},
        test::Answer(L"<x>value</x>"));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}),
              (Lines_{L"100 0 \\P:A STRING 1", L"100 0 \\P:B STRING 2", L"100 0 \\P.Q:C STRING 2",
                      L"100 0 \\P.Q:D STRING 3", L"100 0 \\T STRING 1",
                      // The same name on another element is another leaf.
                      L"100 0 \\T STRING value", L"100 0 \\U STRING 3"}));
}

TEST_F(ExtensionFiles, TenFilesThatMergeIntoOneAnotherMakeOneTree) {
    const auto file = [](int own) {
        std::string leaves;
        for (int i = 0; i < 200; ++i) {
            leaves += "<Const name='L" + std::to_string(i) + "'>" + std::to_string(own) + "</Const>";
        }
        return test::Extension("<Property name='P'><Property name='Q'>" + leaves + "<Const name='Own" +
                               std::to_string(own) + "'>x</Const></Property></Property>");
    };
    const auto engine =
        Engine({file(0), file(1), file(2), file(3), file(4), file(5), file(6), file(7), file(8), file(9)},
               test::Answer(L""));
    const Lines_ lines = Lines(*engine, L"GetAll", {L"\\"});
    ASSERT_EQ(lines.size(), 210u);
    EXPECT_EQ(lines[199], L"100 0 \\P.Q:L199 STRING 0");
    EXPECT_EQ(lines[209], L"100 0 \\P.Q:Own9 STRING x");
}

TEST_F(ExtensionFiles, SchemasOfTheSameNameAreOneAndOthersStayApart) {
    const auto file = [](const char* name, const char* leaf) {
        return std::string("<d:D xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>") +
               "<Schema name='" + name + "' xmlns:" + leaf + "='urn:" + leaf + "'><Value name='" + leaf +
               "' filter='" + leaf + ":e'/></Schema></d:D>";
    };
    const auto engine = Engine({file("S", "a"), file("S", "b"), file("other", "c")},
                               test::Answer(L"<e xmlns='urn:b'>text</e>"));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}), (Lines_{L"100 232 \\a NULL", L"100 0 \\b STRING text"}));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\:c"}), Lines_{L"100 232 \\:c NULL"});
}

TEST_F(ExtensionFiles, OnePrefixForTwoNamespacesIsAMismatch) {
    const std::string one =
        "<d:D xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>"
        "<Schema xmlns:pri='urn:one'/></d:D>";
    const std::string two =
        "<d:D xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>"
        "<Schema xmlns:pri='urn:two'/></d:D>";
    const wchar_t expected[] =
        L"Error: Mismatch in extension file(s) and/or WSD stream - same prefix \"pri\" refers to "
        L"different "
        L"namespace "
        L"URLs\r\n";
    CVelunBidiSpl engine;
    EXPECT_EQ(engine.Init(L"Office", FileList({one, two}).c_str()), E_FAIL);
    ASSERT_EQ(engine.Init(L"Office", FileList({one}).c_str()), S_OK);
    EXPECT_EQ(engine.SetGetPrinterElementResponseData(
                  L"<r xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print'/>"),
              E_FAIL);
    const Lines_ traced = trace_.Texts();
    EXPECT_EQ(std::count(traced.begin(), traced.end(), expected), 2);
}

TEST_F(ExtensionFiles, NameWithAnApostropheCannotBeMerged) {
    const std::string file = test::Extension("<Property name=\"It's\"><Const name='C'>1</Const></Property>");
    CVelunBidiSpl engine;
    EXPECT_EQ(engine.Init(L"Office", FileList({file, file}).c_str()), E_FAIL);
    EXPECT_TRUE(trace_.HasPart(L"It's holds an apostrophe"));
    // In a single file it is a name like any other.
    const auto single = Engine({file}, test::Answer(L""));
    EXPECT_EQ(Lines(*single, L"GetAll", {L"\\"}), Lines_{L"100 0 \\It's:C STRING 1"});
}

class PrinterAnswer : public test::EngineTest {};

TEST_F(PrinterAnswer, BadAnswerIsRefusedAndLeavesTheEngineUnbound) {
    const struct {
        const char* what;
        std::wstring text;
        HRESULT expected;
        const wchar_t* traced;
    } kCases[] = {
        {"empty", L"", E_FAIL, L"Error: Unable to load WSD stream\r\n"},
        {"truncated", L"<a>", E_FAIL, L"** XML Parse error "},
        {"another namespace", L"<a xmlns='urn:a'/>", E_FAIL,
         L"** XML Error: unable to find namespace "
         L"\"http://schemas.microsoft.com/windows/2006/08/wdp/print\" **"},
        {"too large", test::Answer(std::wstring(3u << 20, L' ')), kRefused,
         L"Error: the printer's answer is too large"},
        {"document type", L"<!DOCTYPE a><a/>", kRefused, L"has a document type declaration"},
    };
    CVelunBidiSpl engine;
    ASSERT_EQ(engine.Init(L"Office", FileList({test::Extension("<Const name='C'>1</Const>")}).c_str()), S_OK);
    for (const auto& test : kCases) {
        EXPECT_EQ(engine.SetGetPrinterElementResponseData(test.text.c_str()), test.expected) << test.what;
        EXPECT_TRUE(trace_.HasPart(test.traced)) << test.what;
        Ask(engine, L"Get", {L"\\C"}, E_FAIL);
    }
    EXPECT_EQ(engine.SetGetPrinterElementResponseData(test::Answer(L"").c_str()), S_OK);
    Ask(engine, L"Get", {L"\\C"});
}

TEST_F(PrinterAnswer, ComesAsTextOrAsStreamUnderAnyPrefix) {
    const std::string leaf = "<Value name='N' filter='w:Name'/>";
    const std::string body =
        "<?xml version='1.0' encoding='utf-8'?><r "
        "xmlns='http://schemas.microsoft.com/windows/2006/08/wdp/print'>"
        "<Name>\xC3\xA9</Name></r>";
    ComPtr<IStream> stream;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, stream.Receive()), S_OK);
    stream->Write(body.data(), static_cast<ULONG>(body.size()), nullptr);
    stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
    CVelunBidiSpl engine;
    ASSERT_EQ(engine.Init(L"Office", FileList({test::Extension(leaf)}).c_str()), S_OK);
    ASSERT_EQ(engine.SetGetPrinterElementResponseStream(stream.Get()), S_OK);
    EXPECT_EQ(Lines(engine, L"Get", {L"\\N"}), Lines_{L"100 0 \\N STRING \x00E9"});

    // The declaration's encoding is that of the bytes the text once was.
    const auto text = Engine({test::Extension(leaf)},
                             L"<?xml version='1.0' encoding='iso-8859-1'?>"
                             L"<x:r xmlns:x='http://schemas.microsoft.com/windows/2006/08/wdp/print'>"
                             L"<x:Name>\x4E2D</x:Name></x:r>");
    EXPECT_EQ(Lines(*text, L"Get", {L"\\N"}), Lines_{L"100 0 \\N STRING \x4E2D"});

    // Filters may use the answer's own prefixes, and "defNsPfx" for its default namespace.
    const auto own =
        Engine({test::Extension("<Value name='N' filter='defNsPfx:Name'/>")},
               L"<r xmlns='http://schemas.microsoft.com/windows/2006/08/wdp/print'><Name>n</Name></r>");
    EXPECT_EQ(Lines(*own, L"Get", {L"\\N"}), Lines_{L"100 0 \\N STRING n"});
}

class ParameterExpansion : public test::EngineTest {};

// A Parameter that carries the template, and one that stands in it.
const char kCarrying[] =
    "<Property name='Ink'><Parameter name='$Color$' parameter='Color' filter='w:Ink/w:Color' query='w:Inks'>"
    "<Value name='Level' type='BIDI_INT' filter='w:Ink[w:Color=\"$Color$\"]/w:Level' query='w:Levels'/>"
    "</Parameter><Const name='Unit'>%</Const></Property>";
const char kStanding[] =
    "<Property name='Ink'><Property name='$Color$'><Parameter parameter='Color' filter='w:Ink/w:Color' "
    "query='w:Inks'/>"
    "<Value name='Level' type='BIDI_INT' filter='w:Ink[w:Color=\"$Color$\"]/w:Level' query='w:Levels'/>"
    "</Property><Const name='Unit'>%</Const></Property>";

std::wstring Inks() {
    return test::Answer(
        L"<wprt:Ink><wprt:Color>Black</wprt:Color><wprt:Level>70</wprt:Level></wprt:Ink>"
        L"<wprt:Ink><wprt:Color>Bob's \"best\"</wprt:Color><wprt:Level>20</wprt:Level></wprt:Ink>"
        L"<wprt:Ink><wprt:Color>Cyan</wprt:Color></wprt:Ink>");
}

TEST_F(ParameterExpansion, BothFormsMakeOnePropertyForEachNode) {
    for (const char* form : {kCarrying, kStanding}) {
        const auto engine = Engine({test::Extension(form)}, Inks());
        EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\Ink"}),
                  (Lines_{L"100 0 \\Ink.Black:Level INT 70",
                          // Quotes in the printer's text do not end the filter's literals.
                          L"100 0 \\Ink.Bob's \"best\":Level INT 20", L"100 232 \\Ink.Cyan:Level NULL",
                          L"100 0 \\Ink:Unit STRING %"}));
        EXPECT_EQ(Lines(*engine, L"Get", {L"\\Ink.Black:Level", L"\\Ink.$Color$:Level"}),
                  (Lines_{L"100 0 \\Ink.Black:Level INT 70", L"101 232 \\Ink.$Color$:Level NULL"}));
        EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\Ink.Black"}), Lines_{L"100 0 \\Ink.Black:Level INT 70"});
    }
}

TEST_F(ParameterExpansion, NodesThatAreNotThereMakeNothing) {
    for (const char* form : {kCarrying, kStanding}) {
        const auto engine = Engine({test::Extension(form)}, test::Answer(L""));
        EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}), Lines_{L"100 0 \\Ink:Unit STRING %"});
    }
}

TEST_F(ParameterExpansion, ParametersNest) {
    const auto engine =
        Engine({test::Extension("<Property name='$U$'><Parameter parameter='U' filter='w:Unit/@id'/>"
                                "<Property name='Trays'><Parameter name='$U$-$T$' parameter='T' "
                                "filter='w:Unit[@id=\"$U$\"]/w:Tray'>"
                                "<Const name='C'>c</Const><Installed name='Is$T$' "
                                "filter='w:Unit[@id=&apos;$U$&apos;]/w:Tray[.=&apos;$T$&apos;]'/>"
                                "</Parameter></Property></Property>")},
               test::Answer(L"<wprt:Unit id='1'><wprt:Tray>a</wprt:Tray><wprt:Tray>b</wprt:Tray></wprt:Unit>"
                            L"<wprt:Unit id='2'><wprt:Tray>a</wprt:Tray></wprt:Unit><wprt:Unit id='3'/>"));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}),
              (Lines_{L"100 0 \\1.Trays.1-a:C STRING c", L"100 0 \\1.Trays.1-a:Isa BOOL TRUE",
                      L"100 0 \\1.Trays.1-b:C STRING c", L"100 0 \\1.Trays.1-b:Isb BOOL TRUE",
                      L"100 0 \\2.Trays.2-a:C STRING c", L"100 0 \\2.Trays.2-a:Isa BOOL TRUE"}));
}

TEST_F(ParameterExpansion, UnboundParameterFailsAndIsNamed) {
    const struct {
        const char* declaration;
        const wchar_t* traced;
    } kCases[] = {
        {"<Value name='V' filter='w:A[.=\"$Color$\"]'/>",
         L"Error: Parameter Color in w:A[.=\"$Color$\"] is undefined\r\n"},
        // A text that begins with "$" begins with a parameter.
        {"<Value name='V' filter='$X$/w:A'/>", L"Error: Parameter X in $X$/w:A is undefined\r\n"},
        {"<Value name='V' filter='w:A$$'/>", nullptr},
        {"<Property name='$Y$'><Parameter parameter='X' filter='w:Ink'/></Property>",
         L"Error: Parameter Y in $Y$ is undefined\r\n"},
        // The binding ends with its Property.
        {"<Property name='$X$'><Parameter parameter='X' filter='w:Ink'/></Property>"
         "<Value name='V' filter='w:A[$X$]'/>",
         L"Error: Parameter X in w:A[$X$] is undefined\r\n"},
    };
    for (const auto& test : kCases) {
        CVelunBidiSpl engine;
        ASSERT_EQ(engine.Init(L"Office", FileList({test::Extension(test.declaration)}).c_str()), S_OK);
        EXPECT_EQ(engine.SetGetPrinterElementResponseData(Inks().c_str()), E_FAIL) << test.declaration;
        if (test.traced != nullptr) {
            EXPECT_TRUE(trace_.Has(test.traced)) << test.declaration;
        }
    }
}

TEST_F(ParameterExpansion, GrowthIsBounded) {
    std::wstring nodes;
    for (int i = 0; i < 1'000; ++i)
        nodes += L"<wprt:N>x</wprt:N>";
    const std::string nested =
        "<Property name='$A$'><Parameter parameter='A' filter='w:N'/>"
        "<Property name='$B$'><Parameter parameter='B' filter='w:N'/><Const "
        "name='C'>c</Const></Property></Property>";
    CVelunBidiSpl engine;
    ASSERT_EQ(engine.Init(L"Office", FileList({test::Extension(nested)}).c_str()), S_OK);
    EXPECT_EQ(engine.SetGetPrinterElementResponseData(test::Answer(nodes).c_str()), kRefused);
    EXPECT_TRUE(trace_.HasPart(L"Error: the parameters expand to more than "));
}

TEST(ParametersInText, AreReplacedInTurnAndKeepLiteralsWhole) {
    const Parameters bound{{L"A", L"x"}, {L"B", L"it's"}, {L"C", L"say \"it's\""}, {L"E", L""}};
    const struct {
        const wchar_t* filter;
        const wchar_t* expected;
    } kCases[] = {
        {L"w:a[.='b']", L"w:a[.='b']"},
        {L"$A$", L"x"},
        {L"$A$$A$", L"xx"},
        {L"w:$A$[1]", L"w:x[1]"},
        {L"a[.='$A$']", L"a[.='x']"},
        {L"a[.='$B$']", L"a[.=\"it's\"]"},
        {L"a[.=\"$B$\"]", L"a[.=\"it's\"]"},
        {L"a[.='no $B$, $A$']", L"a[.=\"no it's, x\"]"},
        {L"a[.='$C$']", L"a[.=concat('say \"it',\"'\",'s\"')]"},
        {L"a[.='$E$' and b='c']", L"a[.='' and b='c']"},
        {L"a$A", L"ax"},
        {L"a$", L"a"},
    };
    for (const auto& test : kCases)
        EXPECT_EQ(ReplaceInFilter(test.filter, bound), test.expected) << test.filter;
    EXPECT_EQ(ReplaceInName(L"$A$ of '$B$'", bound), L"x of 'it's'");
}

TEST_F(ParameterExpansion, NamedButEmptyParameterStandsInItsTemplate) {
    const auto engine =
        Engine({test::Extension("<Property name='$C$'><Parameter name='$C$' parameter='C' "
                                "filter='w:Ink/w:Color'/><Const name='K'>k</Const></Property>")},
               test::Answer(L"<wprt:Ink><wprt:Color>Red</wprt:Color></wprt:Ink>"));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}), Lines_{L"100 0 \\Red:K STRING k"});
}

class Leaks : public test::EngineTest {};

// Good queries and every kind of failure, over and over: handles, threads and heap stay what they were.
TEST_F(Leaks, QueriesAndFailuresLeaveNothingBehind) {
    const std::wstring good = FileList({test::Extension(kCarrying), test::Extension(kStanding)});
    const std::wstring bad = FileList({test::Extension(kCarrying), "<truncated"});
    const std::wstring broken = FileList({test::Extension("<Value name='V' filter='w:A['/>")});
    const auto round = [&] {
        for (const std::wstring& list : {good, bad, broken}) {
            CVelunBidiSpl engine;
            const test::Request request({L"\\"});
            BIDI_RESPONSE_CONTAINER* response = nullptr;
            _bstr_t text;
            CXMLDoc document;
            engine.Init(L"Office", list.c_str());
            engine.EnumQueryElement(request.Get(), text.GetAddress());
            engine.SetGetPrinterElementResponseData(L"<truncated");
            engine.SetGetPrinterElementResponseData(Inks().c_str());
            engine.SendRecvXMLString(L"\\", document);
            engine.SendRecvBidiDataFromPort(L"GetAll", request.Get(), &response);
            const test::Response owned(response);
        }
    };
    // The first rounds fill the platform's own caches.
    for (int i = 0; i < 5; ++i)
        round();
    const test::Resources before = test::CountResources();
    for (int i = 0; i < 20; ++i)
        round();
    trace_.Forget();
    const test::Resources after = test::CountResources();
    EXPECT_EQ(after.handles, before.handles);
    EXPECT_EQ(after.threads, before.threads);
    // A leak would be one block a round at least.
    EXPECT_LT(after.heapBlocks, before.heapBlocks + 20);
}

class QueryElements : public test::EngineTest {
 protected:
    std::unique_ptr<CVelunBidiSpl> Loaded(const std::string& children) {
        auto engine = std::make_unique<CVelunBidiSpl>();
        EXPECT_EQ(engine->Init(L"Office", FileList({test::Extension(children)}).c_str()), S_OK);
        return engine;
    }
    static std::wstring List(std::initializer_list<const wchar_t*> names) {
        std::wstring list =
            L"<EnumQueryElement xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'>";
        for (const wchar_t* name : names)
            list += std::wstring(L"<Name>") + name + L"</Name>";
        return list + L"</EnumQueryElement>";
    }
};

TEST_F(QueryElements, AreThoseOfThePathAndBelowEachOnce) {
    const auto engine = Loaded(
        "<Property name='P' query='w:P'><Value name='A' query='w:A'/><Value name='B' query='w:B'/>"
        "<Property name='Q'><Value name='A' query='w:A'/><Value name='C' query='w:C'/><Const "
        "name='K'>k</Const>"
        "</Property></Property><Value name='T' query='w:T'/>");
    const struct {
        std::vector<const wchar_t*> paths;
        std::wstring expected;
    } kCases[] = {
        {{L"\\P:B"}, List({L"w:B"})},
        {{L"\\P"}, List({L"w:P", L"w:A", L"w:B", L"w:C"})},
        {{L"\\P.Q:C", L"\\P.Q:A", L"\\P:A"}, List({L"w:C", L"w:A"})},
        {{L"\\"}, List({L"w:P", L"w:A", L"w:B", L"w:C", L"w:T"})},
        {{L"\\no", L"\\:T", L"\\P:no"}, List({L"w:T"})},
        {{L"\\P.Q:K"}, L"<EnumQueryElement></EnumQueryElement>"},
    };
    for (const auto& test : kCases)
        EXPECT_EQ(Enum(*engine, test.paths), test.expected);
    for (const std::vector<const wchar_t*>& paths :
         {std::vector<const wchar_t*>{}, std::vector<const wchar_t*>{L"\\no", L"\\P.A", L"\\P:Q"}}) {
        EXPECT_EQ(Enum(*engine, paths, S_FALSE), L"<EnumQueryElement><Error/></EnumQueryElement>");
    }
}

TEST_F(QueryElements, ReachThroughParameters) {
    for (const char* form : {kCarrying, kStanding}) {
        const auto engine = Loaded(form);
        const std::wstring both = List({L"w:Inks", L"w:Levels"});
        EXPECT_EQ(Enum(*engine, {L"\\Ink.Black:Level"}), both);
        EXPECT_EQ(Enum(*engine, {L"\\Ink.Black"}), both);
        EXPECT_EQ(Enum(*engine, {L"\\Ink"}), both);
        EXPECT_EQ(Enum(*engine, {L"\\"}), both);
        Enum(*engine, {L"\\Ink.Black:NoSuch"}, S_FALSE);
    }
    const auto nested = Loaded(
        "<Property name='$A$'><Parameter parameter='A' query='w:A'/><Property name='B'>"
        "<Parameter name='$C$' query='w:C'><Value name='V' query='w:V'/></Parameter>"
        "</Property></Property>");
    EXPECT_EQ(Enum(*nested, {L"\\any.B.thing:V"}), List({L"w:A", L"w:C", L"w:V"}));
}

TEST_F(QueryElements, DeclareThePrefixesThatTheirNamesUse) {
    const std::string file =
        "<d:D xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi' xmlns:root='urn:root'>"
        "<Schema xmlns:one='urn:one' xmlns:two='urn:two&amp;2' xmlns:three='urn:three'>"
        "<Value name='A' query='two:A'/><Value name='B' query='one:B'/><Value name='C' query='plain'/>"
        "<Value name='D' query='root:D'/></Schema></d:D>";
    CVelunBidiSpl engine;
    ASSERT_EQ(engine.Init(L"Office", FileList({file}).c_str()), S_OK);
    EXPECT_EQ(Enum(engine, {L"\\:A", L"\\:B", L"\\:C"}),
              L"<EnumQueryElement xmlns:two='urn:two&amp;2' xmlns:one='urn:one'>"
              L"<Name>two:A</Name><Name>one:B</Name><Name>plain</Name></EnumQueryElement>");
    // Only what the Schema element itself declares counts.
    Enum(engine, {L"\\:D"}, E_FAIL);
    EXPECT_TRUE(trace_.Has(L"Error: Bidi extension file contains no namespace declaration for root\r\n"));
}

}  // namespace
}  // namespace vlm
