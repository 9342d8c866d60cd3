// Extension files and printers' answers: loading, merging, refusing.
#include <algorithm>

#include "tests/bidi/engine_fixture.h"
#include "tests/support/text.h"

namespace vlm {
namespace {

using test::Definition;
using test::Repeat;

using Lines_ = std::vector<std::wstring>;
constexpr HRESULT kRefused = static_cast<HRESULT>(0x8007000D);  // Win32's "the data is invalid"

class ExtensionFiles : public test::EngineTest {};

TEST_F(ExtensionFiles, BadFileFailsInitAndSaysWhy) {
    const struct {
        const char* what;
        std::string text;
        HRESULT expected;
        const wchar_t* said;
    } kCases[] = {
        {"empty", "", E_FAIL, L"Error: Unable to load file "},
        {"truncated", Definition("<Schema></Schema>").substr(0, 95), E_FAIL, L"Error: Unable to load file "},
        {"no Bidi namespace", "<D><Schema/></D>", E_FAIL,
         L"** XML Error: unable to find namespace "
         L"\"http://schemas.microsoft.com/windows/2005/03/printing/bidi\" **"},
        {"50 MB", Definition(std::string(50u << 20, ' ')), kRefused, L"is too large"},
        {"10,000 levels", Definition(Repeat(10'000, "<Property>") + Repeat(10'000, "</Property>")), kRefused,
         L"nests its elements too deeply"},
        {"a million elements", Definition(Repeat(1'000'000, "<a/>")), kRefused,
         L"has too many elements and attributes"},
        {"entities",
         "<!DOCTYPE D [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '" + Repeat(10, "&a;") + "'>]>" + Definition("&b;"),
         kRefused, L"has a document type declaration"},
    };
    for (const auto& test : kCases) {
        CVelunBidiSpl engine;
        EXPECT_EQ(engine.Init(L"Office", FileList({test.text}).c_str()), test.expected) << test.what;
        EXPECT_TRUE(Said(engine, test.said)) << test.what;
        EXPECT_NE(engine.Reason().find(L".xml"), std::wstring::npos) << test.what;
        // A failed Init can be repeated.
        EXPECT_EQ(engine.Init(L"Office", FileList({test::Extension("")}).c_str()), S_OK) << test.what;
        EXPECT_EQ(engine.Reason(), L"") << test.what;
    }
    EXPECT_TRUE(trace_.HasPart(L"(file=velunbidispl, line="));
}

TEST_F(ExtensionFiles, BadListFailsInitAndSaysWhy) {
    const struct {
        const wchar_t* list;
        HRESULT expected;
        const wchar_t* said;
    } kCases[] = {
        {L"<BidiExtensionFiles></BidiExtensionFiles>", E_FAIL,
         L"No extension files found in\r\n<BidiExtensionFiles></BidiExtensionFiles>\r\n"},
        {L"<BidiExtensionFiles><BidiXml path=\"a&b.xml\" />", E_FAIL, L"** XML Parse error "},
        {L"<x><BidiXml/></x>", E_FAIL, L"Error: Unable to load file \r\n"},
        {L"<x><BidiXml path='C:\\no\\such.xml'/></x>", E_FAIL,
         L"Error: Unable to load file C:\\no\\such.xml\r\n"},
        {L"<x><BidiXml path='\\\\.\\NUL'/></x>", kRefused, L"NUL is not a file"},
        {L"<x><BidiXml path='http://127.0.0.1:9/a.xml'/></x>", kRefused, L"a.xml is not a file"},
    };
    for (const auto& test : kCases) {
        CVelunBidiSpl engine;
        EXPECT_EQ(engine.Init(nullptr, test.list), test.expected) << test.list;
        EXPECT_TRUE(Said(engine, test.said)) << test.list;
        EXPECT_FALSE(engine.Reason().empty()) << test.list;
    }
}

TEST_F(ExtensionFiles, EncodingsAndMarkupThatAreNotThePointDoNotMatter) {
    const std::string kinds[] = {
        test::Utf16(test::Extension("<Const name='C'>text</Const>")),
        "\xEF\xBB\xBF<?xml version='1.0' encoding='utf-8'?><!-- c -->\n" +
            test::Extension("<!-- c --><?p i?>\n<Const name='C'>te<!-- c --><![CDATA[x]]>t</Const>"),
        "<?xml version='1.0' encoding='iso-8859-1'?>" + test::Extension("<Const name='C'>text</Const>"),
        "<Definition xmlns='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>"
        "<Schema xmlns=''><Const name='C'>text</Const></Schema></Definition>",
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

TEST_F(ExtensionFiles, SchemasOfTheSameNameAreOneAndOthersStayApart) {
    const auto file = [](const char* name, const char* leaf) {
        return Definition(std::string("<Schema name='") + name + "' xmlns:" + leaf + "='urn:" + leaf +
                          "'><Value name='" + leaf + "' filter='" + leaf + ":e'/></Schema>");
    };
    const auto engine = Engine({file("S", "a"), file("S", "b"), file("other", "c")},
                               test::Answer(L"<e xmlns='urn:b'>text</e>"));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}), (Lines_{L"100 232 \\a NULL", L"100 0 \\b STRING text"}));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\:c"}), Lines_{L"100 232 \\:c NULL"});
}

TEST_F(ExtensionFiles, OnePrefixForTwoNamespacesIsAMismatch) {
    const std::string one = Definition("<Schema xmlns:pri='urn:one'/>");
    const std::string two = Definition("<Schema xmlns:pri='urn:two'/>");
    const wchar_t expected[] =
        L"Error: Mismatch in extension file(s) and/or WSD stream - same prefix \"pri\" refers to "
        L"different namespace URLs\r\n";
    CVelunBidiSpl engine;
    EXPECT_EQ(engine.Init(L"Office", FileList({one, two}).c_str()), E_FAIL);
    EXPECT_TRUE(engine.Reason().starts_with(L"prefix \"pri\" is \"urn:two\" in "));
    EXPECT_TRUE(engine.Reason().ends_with(L".xml, but \"urn:one\" in the extension files before it"));
    ASSERT_EQ(engine.Init(L"Office", FileList({one}).c_str()), S_OK);
    EXPECT_EQ(engine.SetGetPrinterElementResponseData(
                  L"<r xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print'/>"),
              E_FAIL);
    // What "Get" does not see, a second Schema, need not agree with the answer.
    const std::string apart = Definition("<Schema/><Schema xmlns:wprt='urn:one'/>");
    Engine({apart}, test::Answer(L""));
    const Lines_ traced = trace_.Texts();
    EXPECT_EQ(std::count(traced.begin(), traced.end(), expected), 2);
}

TEST_F(ExtensionFiles, NameWithAnApostropheCannotBeMerged) {
    const std::string file = test::Extension("<Property name=\"It's\"><Const name='C'>1</Const></Property>");
    CVelunBidiSpl engine;
    EXPECT_EQ(engine.Init(L"Office", FileList({file, file}).c_str()), E_FAIL);
    EXPECT_TRUE(Said(engine, L"It's holds an apostrophe and cannot be looked up: Property \"It's\" in "));
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
        const wchar_t* said;
    } kCases[] = {
        {"empty", L"", E_FAIL, L"Error: Unable to load WSD stream\r\n"},
        {"truncated", L"<a>", E_FAIL, L"** XML Parse error "},
        {"another namespace", L"<a xmlns='urn:a'/>", E_FAIL,
         L"** XML Error: unable to find namespace "
         L"\"http://schemas.microsoft.com/windows/2006/08/wdp/print\" **"},
        {"too large", test::Answer(std::wstring(3u << 20, L' ')), kRefused,
         L"the printer's answer is too large"},
        {"document type", L"<!DOCTYPE a><a/>", kRefused, L"has a document type declaration"},
    };
    const auto engine = Loaded({test::Extension("<Const name='C'>1</Const>")});
    for (const auto& test : kCases) {
        EXPECT_EQ(engine->SetGetPrinterElementResponseData(test.text.c_str()), test.expected) << test.what;
        EXPECT_TRUE(Said(*engine, test.said)) << test.what;
        EXPECT_TRUE(engine->Reason().starts_with(L"the printer's answer")) << test.what;
        Ask(*engine, L"Get", {L"\\C"}, E_FAIL);
    }
    EXPECT_EQ(engine->SetGetPrinterElementResponseData(test::Answer(L"").c_str()), S_OK);
    Ask(*engine, L"Get", {L"\\C"});
}

TEST_F(PrinterAnswer, WhiteSpaceAtTheEndsDoesNotCount) {
    const auto engine =
        Engine({test::Extension("<Value name='A' type='BIDI_BOOL' filter='w:A/@v'/>"
                                "<Value name='C' type='BIDI_BOOL' filter='w:C'/>"
                                "<Value name='S' type='BIDI_BOOL' filter='w:S'/>"
                                "<List name='L' filter='w:L'/>")},
               test::Answer(L"<wprt:A v=' true&#10;'/><wprt:C><![CDATA[ true\n]]><!-- c --> </wprt:C>"
                            L"<wprt:S xml:space='preserve'>\n true </wprt:S>"
                            L"<wprt:L xml:space='preserve'> a </wprt:L><wprt:L> b b </wprt:L>"
                            L"<wprt:L xml:space='preserve'> c\n</wprt:L>"));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}),
              (Lines_{L"100 0 \\A BOOL TRUE", L"100 0 \\C BOOL TRUE", L"100 0 \\S BOOL TRUE",
                      L"100 0 \\L STRING a,b b,c"}));
}

TEST_F(PrinterAnswer, DefaultNamespaceDoesNotClashWithOneThatASchemaUndoes) {
    const auto engine =
        Engine({"<d:Definition xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi' "
                "xmlns='http://schemas.microsoft.com/windows/2005/03/printing/bidi'><Schema xmlns='' "
                "xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'>"
                "<Value name='N' filter='w:Name'/></Schema></d:Definition>"},
               L"<r xmlns='http://schemas.microsoft.com/windows/2006/08/wdp/print'><Name>x</Name></r>");
    EXPECT_EQ(Lines(*engine, L"Get", {L"\\N"}), Lines_{L"100 0 \\N STRING x"});
}

TEST_F(PrinterAnswer, ComesAsTextOrAsBytesUnderAnyPrefix) {
    const std::string leaf = "<Value name='N' filter='w:Name'/>";
    const std::string body =
        "<?xml version='1.0' encoding='utf-8'?><r "
        "xmlns='http://schemas.microsoft.com/windows/2006/08/wdp/print'>"
        "<Name>\xC3\xA9</Name></r>";
    const auto engine = Loaded({test::Extension(leaf)});
    ASSERT_EQ(engine->SetGetPrinterElementResponse(body), S_OK);
    EXPECT_EQ(Lines(*engine, L"Get", {L"\\N"}), Lines_{L"100 0 \\N STRING \x00E9"});

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

}  // namespace
}  // namespace vlm
