// Parameters of extension files, and the names of the elements that a printer is asked for.
#include "tests/bidi/engine_fixture.h"
#include "tests/support/text.h"

namespace vlm {
namespace {

using Lines_ = std::vector<std::wstring>;

class ParameterExpansion : public test::EngineTest {};

// A Parameter that carries the template, and one that stands in it, where its own name does not count.
const char kCarrying[] =
    "<Property name='Ink'><Parameter name='$Color$' parameter='Color' filter='w:Ink/w:Color' query='w:Inks'>"
    "<Value name='Level' type='BIDI_INT' filter='w:Ink[w:Color=\"$Color$\"]/w:Level' query='w:Levels'/>"
    "</Parameter><Const name='Unit'>%</Const></Property>";
const char kStanding[] =
    "<Property name='Ink'><Property name='$Color$'>"
    "<Parameter name='$Color$' parameter='Color' filter='w:Ink/w:Color' query='w:Inks'/>"
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
        const auto none = Engine({test::Extension(form)}, test::Answer(L""));
        EXPECT_EQ(Lines(*none, L"GetAll", {L"\\"}), Lines_{L"100 0 \\Ink:Unit STRING %"});
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
        SCOPED_TRACE(test.declaration);
        const auto engine = Loaded({test::Extension(test.declaration)});
        EXPECT_EQ(engine->SetGetPrinterElementResponseData(Inks().c_str()), E_FAIL);
        if (test.traced == nullptr) continue;
        EXPECT_TRUE(trace_.Has(test.traced));
        EXPECT_NE(engine->Reason().find(L".xml"), std::wstring::npos);
    }
}

// Whatever "GetAll" lists is found when it is asked for alone, and asks the printer for what it needs.
TEST_F(ParameterExpansion, NamesWithParametersAreFoundAlone) {
    const auto engine = Engine(
        {test::Extension("<Parameter name='$C$' parameter='C' filter='w:Ink/w:Color' query='w:Inks'>"
                         "<Value name='$C$Level' filter='w:Ink[w:Color=\"$C$\"]/w:Level' query='w:Levels'/>"
                         "<Const name='US$Rate'>1</Const><Const name='$X$ of $C$'>2</Const>"
                         "<Property name='For $C$, $C$'><Value name='V' filter='w:None' query='w:Other'/>"
                         "</Property></Parameter><Const name='$C$'>outside</Const>")},
        test::Answer(L"<wprt:Ink><wprt:Color>Black</wprt:Color><wprt:Level>70</wprt:Level></wprt:Ink>"));
    const Lines_ all = Lines(*engine, L"GetAll", {L"\\"});
    EXPECT_EQ(all, (Lines_{L"100 0 \\Black:BlackLevel STRING 70", L"100 0 \\Black:US$Rate STRING 1",
                           L"100 0 \\Black:$X$ of Black STRING 2", L"100 232 \\Black.For Black, Black:V NULL",
                           L"100 0 \\$C$ STRING outside"}));
    for (const wchar_t* path : {L"\\Black:BlackLevel", L"\\Black:US$Rate", L"\\Black:$X$ of Black",
                                L"\\Black.For Black, Black:V", L"\\Black.For Black, Black"}) {
        EXPECT_EQ(Lines(*engine, L"GetAll", {path}).size(), 1u) << path;
        Enum(*engine, {path});  // is resolved
    }
    EXPECT_NE(Enum(*engine, {L"\\Black:BlackLevel"}).find(L"<Name>w:Levels</Name>"), std::wstring::npos);
    EXPECT_NE(Enum(*engine, {L"\\Black.For Black, Black"}).find(L"<Name>w:Other</Name>"), std::wstring::npos);
    Enum(*engine, {L"\\Black:Rate"}, S_FALSE);
}

TEST_F(ParameterExpansion, BeginsAtSchema) {
    const std::string beside = test::Definition(
        "<Property name='$A$'><Parameter parameter='A' filter='no['/><Const name='C'>c</Const>"
        "</Property><Value name='V' filter='$Unbound$'/>");
    const auto engine = Engine({test::Extension("<Const name='C'>1</Const>"), beside}, test::Answer(L""));
    EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\"}), Lines_{L"100 0 \\C STRING 1"});
}

class QueryElements : public test::EngineTest {
 protected:
    static std::wstring List(std::initializer_list<const wchar_t*> names) {
        std::wstring list =
            L"<EnumQueryElement xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'>";
        for (const wchar_t* name : names)
            list += std::wstring(L"<Name>") + name + L"</Name>";
        return list + L"</EnumQueryElement>";
    }
};

TEST_F(QueryElements, AreThoseOfThePathAndBelowEachOnce) {
    const auto engine = Loaded({test::Extension(
        "<Property name='P' query='w:P'><Value name='A' query='w:A'/><Value name='B' query='w:B'/>"
        "<Property name='Q'><Value name='A' query='w:A'/><Value name='C' query='w:C'/><Const "
        "name='K'>k</Const>"
        "</Property></Property><Value name='T' query='w:T'/>")});
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

// Walked for each entry, the tree would keep this test busy until it is ended.
TEST_F(QueryElements, OfTheWholeTreeAskedForOverAndOverAreGatheredOnce) {
    const std::string leaves = test::Repeat(30'000, "<Value query='w:A'/>");
    EXPECT_EQ(Enum(*Loaded({test::Extension(leaves)}), std::vector<const wchar_t*>(200'000, L"\\")),
              List({L"w:A"}));
}

TEST_F(QueryElements, ReachThroughParameters) {
    for (const char* form : {kCarrying, kStanding}) {
        const auto engine = Loaded({test::Extension(form)});
        const std::wstring both = List({L"w:Inks", L"w:Levels"});
        for (const wchar_t* path : {L"\\Ink.Black:Level", L"\\Ink.Black", L"\\Ink", L"\\"})
            EXPECT_EQ(Enum(*engine, {path}), both);
        Enum(*engine, {L"\\Ink.Black:NoSuch"}, S_FALSE);
    }
    const auto nested = Loaded(
        {test::Extension("<Property name='$A$'><Parameter parameter='A' query='w:A'/><Property name='B'>"
                         "<Parameter name='$C$' query='w:C'><Value name='V' query='w:V'/></Parameter>"
                         "</Property></Property>")});
    EXPECT_EQ(Enum(*nested, {L"\\any.B.thing:V"}), List({L"w:A", L"w:C", L"w:V"}));
}

TEST_F(QueryElements, DeclareThePrefixesThatTheirNamesUse) {
    const std::string file =
        "<d:D xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi' xmlns:root='urn:root'>"
        "<Schema xmlns:one='urn:one' xmlns:two='urn:two&amp;2' xmlns:three='urn:three'>"
        "<Value name='A' query='two:A'/><Value name='B' query='one:B'/><Value name='C' query='plain'/>"
        "<Value name='D' query='root:D'/></Schema></d:D>";
    const auto engine = Loaded({file});
    EXPECT_EQ(Enum(*engine, {L"\\:A", L"\\:B", L"\\:C"}),
              L"<EnumQueryElement xmlns:two='urn:two&amp;2' xmlns:one='urn:one'>"
              L"<Name>two:A</Name><Name>one:B</Name><Name>plain</Name></EnumQueryElement>");
    // Only what the Schema element itself declares counts.
    Enum(*engine, {L"\\:D"}, E_FAIL);
    EXPECT_TRUE(trace_.Has(L"Error: Bidi extension file contains no namespace declaration for root\r\n"));
}

}  // namespace
}  // namespace vlm
