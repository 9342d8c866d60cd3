// What the checker says about extension files that XML alone finds nothing wrong with, and where.
#include "tools/vlmctl/extension_files/check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "util/com.h"

namespace vlm::ctl {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Matcher;
using testing::StartsWith;

constexpr char kBidi[] = R"(xmlns:bidi="http://schemas.microsoft.com/windows/2005/03/printing/bidi")";
constexpr char kPrint[] = R"(xmlns:pri="http://schemas.microsoft.com/windows/2006/08/wdp/print")";

std::string Schema(const std::string& body, const std::string& attributes = "") {
    return std::string("<Schema ") + kBidi + " " + kPrint + " " + attributes + ">\n" + body + "\n</Schema>\n";
}

// `body` begins in line 3.
std::string Printer(const std::string& body) {
    return Schema("<Property name=\"Printer\">\n" + body + "\n</Property>");
}

std::string Narrow(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t c : text)
        narrow += c < 0x80 ? static_cast<char>(c) : '?';
    return narrow;
}

class CheckTest : public testing::Test {
 protected:
    CheckTest() {
        static int count = 0;
        folder_ = std::filesystem::temp_directory_path() /
                  ("vlm_check_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++count));
        std::filesystem::create_directory(folder_);
    }
    ~CheckTest() override { std::filesystem::remove_all(folder_); }

    // Where the findings on one file of this content are and of what kind: "3:7 no-schema".
    std::vector<std::string> Places(const std::string& content) {
        const std::filesystem::path path = folder_ / "place.xml";
        std::ofstream(path, std::ios::binary) << content;
        std::vector<std::string> places;
        for (const Finding& finding : CheckExtensionFiles({path.wstring()}).findings) {
            places.push_back(std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column) +
                             " " + std::string(About(finding.rule).id));
        }
        return places;
    }
    // The findings on files of these contents, named "1.xml", "2.xml", ...; each as "1.xml:3: error: text".
    std::vector<std::string> Findings(const std::vector<std::string>& contents) {
        std::vector<std::wstring> paths;
        for (const std::string& content : contents) {
            const std::filesystem::path path = folder_ / (std::to_string(paths.size() + 1) + ".xml");
            std::ofstream(path, std::ios::binary) << content;
            paths.push_back(path.wstring());
        }
        const CheckReport report = CheckExtensionFiles(paths);
        EXPECT_THAT(report.unreadable, IsEmpty());
        std::vector<std::string> findings;
        for (const Finding& finding : report.findings) {
            findings.push_back(std::filesystem::path(finding.file).filename().string() + ":" +
                               std::to_string(finding.place.line) +
                               (finding.HowBad() == Severity::kError ? ": error: " : ": warning: ") +
                               Narrow(finding.text));
        }
        return findings;
    }

 private:
    const ComApartment apartment_{COINIT_MULTITHREADED};
    std::filesystem::path folder_;
};

// What the findings on one file begin with, behind "1.xml:".
struct Case {
    const char* what;
    std::string content;
    std::vector<std::string> findings;
};

void ExpectFindings(const Case& expected, const std::vector<std::string>& findings) {
    SCOPED_TRACE(expected.what);
    std::vector<Matcher<std::string>> matchers;
    for (const std::string& finding : expected.findings)
        matchers.push_back(StartsWith("1.xml:" + finding));
    EXPECT_THAT(findings, ElementsAreArray(matchers));
}

TEST_F(CheckTest, FindsWhatIsWrongWithQueriesAndFilters) {
    const Case cases[] = {
        {"in order",
         Printer(
             R"x(<Value name="A" query="pri:S" filter="pri:S/pri:A[@Id='x:y' and position()=1]/text()"/>)x"),
         {}},
        {"not an XPath",
         Printer(R"(<Value name="A" query="pri:S" filter="pri:S["/>)"),
         {"3: error: the filter 'pri:S["}},
        {"a parameter that writes the expression",
         Printer(R"x(<Parameter name="$P$" parameter="P" query="pri:S" filter="pri:S/pri:P">
<Value name="A" query="pri:S" filter="pri:S/pri:A[@Id='$P$' and $P$]"/></Parameter>)x"),
         {"4: warning: the parameter 'P' is used outside quotes"}},
        {"a slash too many at the end",
         Printer(R"(<Value name="A" query="pri:S" filter="pri:S/"/>)"),
         {"3: error: "}},
        {"a slash too many at the start",
         Printer(R"(<Value name="A" query="pri:S" filter="/pri:S"/>)"),
         {"3: error: "}},
        {"finds no nodes",
         Printer(R"(<Value name="A" query="pri:S" filter="pri:S = 1"/>)"),
         {"3: error: the filter "}},
        {"a function that does not exist",
         Printer(R"x(<Value name="A" query="pri:S" filter="pri:S[matches(pri:A, 'x')]"/>)x"),
         {"3: error: the filter 'pri:S[matches(pri:A, 'x')]' calls 'matches'"}},
        {"prefixes that nothing declares",
         Printer(R"(<Value name="A" query="a:S" filter="b:S/@c:A"/>)"),
         {"3: error: the prefix 'a' in query", "3: error: the prefix 'b' in filter",
          "3: error: the prefix 'c'"}},
        {"a prefix declared where it does not count",
         Printer(R"(<Value xmlns:x="urn:x" name="A" query="x:S" filter="pri:S"/>)"),
         {"3: error: the prefix 'x' in query is not declared on the Schema element"}},
        {"a prefix in a string is none",
         Printer(R"(<List name="A" query="pri:S" filter="pri:S[.='x:y']"/>)"),
         {}},
        {"starts elsewhere",
         Printer(R"(<Value name="A" query="pri:S" filter="pri:T/pri:S"/>)"),
         {"3: warning: the filter starts at 'pri:T', not at the queried 'pri:S'"}},
        {"starts at the same name without namespace",
         Printer(R"(<Value name="A" query="pri:S" filter="S/pri:T"/>)"),
         {"3: warning: the filter starts at 'S'"}},
        {"starts at the same element by another prefix",
         Schema("<Property name=\"P\"><Value name=\"A\" query=\"pri:S\" filter=\"q:S\"/></Property>",
                R"(xmlns:q="http://schemas.microsoft.com/windows/2006/08/wdp/print")"),
         {}},
        {"starts by an axis",
         Printer(R"(<Value name="A" query="pri:S" filter="descendant-or-self::pri:S/@x"/>)"),
         {}},
        {"starts at no name", Printer(R"(<Value name="A" query="pri:S" filter="*[self::pri:S]"/>)"), {}},
        {"not asked for",
         Printer(R"(<Value name="A" filter="pri:S"/>)"),
         {"3: warning: Value has no 'query'"}},
        {"asked for by the level is not enough",
         Schema(R"(<Property name="P" query="pri:S"><Value name="A" filter="pri:S"/></Property>)"),
         {"2: warning: Value has no 'query'"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, FollowsWhereParametersAreBound) {
    const std::string from = R"( query="pri:S" filter="pri:S")";
    const std::string uses = R"( filter="pri:S[.='$C$']")";
    const Case cases[] = {
        {"a template asks and binds for what is in it",
         Printer("<Parameter name=\"$C$\" parameter=\"C\"" + from + "><Value name=\"$C$\"" + uses +
                 "/></Parameter>"),
         {}},
        {"an empty one does so for its level",
         Printer("<Property name=\"x$C$\"><Value name=\"A\"" + uses + "/><Parameter parameter=\"C\"" + from +
                 "/></Property>"),
         {}},
        {"a later one may use an earlier one",
         Printer("<Property name=\"$C$$D$\"><Parameter parameter=\"C\"" + from +
                 "/><Parameter parameter=\"D\"" + uses + "/></Property>"),
         {}},
        {"but not the other way round, nor itself",
         Printer("<Property name=\"$C$$D$\"><Parameter parameter=\"D\" query=\"pri:S\"" + uses +
                 "/>\n<Parameter parameter=\"C\" query=\"pri:S\"" + uses + "/></Property>"),
         {"3: error: no Parameter around it binds 'C'", "4: error: no Parameter around it binds 'C'"}},
        {"nothing is bound beside",
         Printer("<Parameter name=\"$C$\" parameter=\"C\"" + from + "/>\n<Value name=\"A\" query=\"pri:S\"" +
                 uses + "/>"),
         {"4: error: no Parameter around it binds 'C', which its filter uses"}},
        {"nor in names",
         Printer("<Property name=\"$C$\"/><Const name=\"$D$\"/>"),
         {"3: warning: the name '$C$' keeps its '$': no Parameter around it binds 'C'",
          "3: warning: the name '$D$' keeps its '$': no Parameter around it binds 'D'"}},
        {"a '$' that is none of a parameter's",
         Printer("<Parameter name=\"$C$\" parameter=\"C\"" + from +
                 "><Const name=\"US$Rate\"/><Const name=\"$C$$X\"/>"
                 "</Parameter>"),
         {}},
        {"inner ones see outer ones",
         Printer(
             "<Parameter name=\"$C$\" parameter=\"C\"" + from + "><Parameter name=\"$D$\" parameter=\"D\"" +
             uses +
             "><Value name=\"A\" filter=\"pri:S[.='$C$' or .='$D$' or .='$E$']\"/></Parameter></Parameter>"),
         {"3: error: no Parameter around it binds 'E'"}},
        {"bound twice",
         Printer("<Parameter name=\"$C$\" parameter=\"C\"" + from +
                 ">\n<Parameter name=\"$C$\" parameter=\"C\"" + from + "/></Parameter>"),
         {"4: error: the parameter 'C' is already bound, in line 3"}},
        {"a dollar too few",
         Printer("<Value name=\"A\" query=\"pri:S\" filter=\"pri:S[.='$C']\"/>"),
         {"3: error: the '$' signs in filter"}},
        {"two dollars around nothing",
         Printer("<Property name=\"$$\"><Parameter parameter=\"C\"" + from + "/></Property>"),
         {"3: warning: the name '$$' does not use", "3: error: the '$' signs in name"}},
        {"the levels would all be called the same",
         Printer("<Property name=\"Color\">\n<Parameter parameter=\"C\"" + from + "/></Property>"),
         {"3: warning: the name 'Color' does not use the parameter 'C'"}},
        {"a template without its parameter in its name",
         Printer("<Parameter name=\"Color\" parameter=\"C\"" + from + "><Const name=\"A\"/></Parameter>"),
         {"2: warning: the name 'Printer' does not use",
          "3: error: a Parameter that makes levels of its own"}},
        {"an empty one that has no level to bind",
         Printer("<Parameter name=\"$C$\" parameter=\"C\"" + from + "><Parameter parameter=\"D\"" + from +
                 "/></Parameter>"),
         {"3: error: a Parameter that makes levels of its own needs a name that uses it, such as "
          "'$D$'"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, FindsWhatIsDeclaredTwice) {
    const Case cases[] = {
        {"a leaf",
         Printer("<Const name=\"A\"/>\n<List name=\"A\" query=\"pri:S\" filter=\"pri:S\"/>"),
         {"4: error: the leaf '\\Printer:A' is already declared in line 3; the path would have two "
          "answers"}},
        {"a leaf in two levels that are one",
         Schema("<Property name=\"P\"><Const name=\"A\"/></Property>\n<Property name=\"P\"><Const "
                "name=\"A\"/></Property>"),
         {"3: warning: Property 'P' is already declared here, in line 2",
          "3: error: the leaf '\\P:A' is already declared"}},
        {"the same name elsewhere is no repetition",
         Printer("<Const name=\"A\"/><Property name=\"A\"><Const name=\"A\"/></Property>"),
         {}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, SaysInWhichLineATagBegins) {
    EXPECT_THAT(Findings({Printer("<!-- <Nope>\n -->\n<Value\n  name=\"A\"\n  kind=\"<\"/>")}),
                ElementsAre(StartsWith("1.xml:7: error: not well-formed")));
    EXPECT_THAT(Findings({Printer("<!-- <Nope>\n -->\n<Value\n  name=\"A>\"\n  kind=\"x\"/>\n<Nope/>")}),
                ElementsAre(StartsWith("1.xml:5: error: Value has no"),
                            StartsWith("1.xml:7: error: unknown attribute 'kind'"),
                            StartsWith("1.xml:8: error: unknown element 'Nope'")));

    // Two bytes a character, and a byte order mark.
    std::string wide = "\xFF\xFE";
    for (const char c : Printer("\n<Nope/>"))
        wide += std::string{c, '\0'};
    EXPECT_THAT(Findings({wide}), ElementsAre(StartsWith("1.xml:4: error: unknown element 'Nope'")));
}

TEST_F(CheckTest, PointsAtTheAttributeAndAtTheCharacterInIt) {
    const auto value = [](const std::string& filter, const std::string& before = "") {
        return Printer(before + "<Value name=\"A\" query=\"pri:S\" filter=\"" + filter + "\"/>");
    };
    // `filter="` begins in column 31, its value in column 39.
    const struct {
        const char* what;
        std::string content;
        std::vector<std::string> places;
    } cases[] = {
        {"a predicate that is missing", value("pri:S[]"), {"3:45 malformed-filter"}},
        {"an end that is missing", value("pri:S["), {"3:45 malformed-filter"}},
        {"what cannot follow", value("pri:S pri:T"), {"3:45 malformed-filter"}},
        {"a string without end", value("pri:S[.='x]"), {"3:47 malformed-filter"}},
        {"no nodes", value("pri:S = 1"), {"3:39 malformed-filter"}},
        {"behind a parameter",
         Printer("<Parameter name='$Colour$' parameter='Colour' query='pri:S' filter='pri:S'>\n"
                 "<Value name='A' query='pri:S' filter=\"pri:S[.='$Colour$' ! 1]\"/></Parameter>"),
         {"4:58 malformed-filter"}},
        {"references and what lies beyond the first 65,536 characters",
         value("pri:S[.=&quot;&#x1F5A8;\xF0\x9F\x96\xA8&amp;&quot; x:y()]"),
         {"3:75 undeclared-prefix"}},
        {"line ends in the attribute", value("pri:S[.='a\n b\r\n c' and\n  ]"), {"6:3 malformed-filter"}},
        {"letters of two bytes in front",
         value("pri:S[", "<!-- \xC3\xA4\xC3\xB6 -->"),
         {"3:56 malformed-filter"}},
        {"letters of one byte in front",
         "<?xml version='1.0' encoding='iso-8859-1'?>" + value("pri:S[", "<!-- \xE4\xF6 -->"),
         {"3:56 malformed-filter"}},
        {"a prefix, a function, a parameter",
         value("pri:S[x:a and foo() and $P$='$P$']"),
         {"3:45 undeclared-prefix", "3:53 unknown-function", "3:63 unbound-parameter",
          "3:63 unquoted-parameter", "3:68 unbound-parameter"}},
        {"the first use outside of quotes",
         Printer("<Parameter name='$P$' parameter='P' query='pri:S' filter='pri:S'>\n"
                 "<Value name='A' query='pri:S' filter=\"pri:S['$P$'=$P$]\"/></Parameter>"),
         {"4:51 unquoted-parameter"}},
        {"where a filter starts", value("child::pri:T"), {"3:46 filter-start"}},
        {"attributes in any order and with any quotes",
         Printer("<Value\n  filter='pri:S[&gt;]'\n\tquery = 'S' name=\"A'>\"\n  type='x'/>"),
         {"4:17 malformed-filter", "5:2 malformed-query", "5:21 unnameable", "6:3 unknown-type"}},
        {"an attribute whose name ends another's",
         Printer("<Const xname='' name='A' type='BIDI_TEXT'/>"),
         {"3:8 unknown-attribute", "3:26 unknown-type"}},
        {"a declaration",
         Schema("", "xmlns:p='https://schemas.microsoft.com/windows/2006/08/wdp/print'"),
         {"1:148 https-namespace"}},
        {"broken XML", "<a>\n<b  x='1' x='2'/>\n</a>", {"2:17 not-well-formed"}},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.what);
        EXPECT_THAT(Places(expected.content), ElementsAreArray(expected.places));
    }

    // Two bytes a character, a byte order mark, and a pair.
    std::string wide = "\xFF\xFE";
    for (const char c : value("pri:S[.='?' and"))
        wide += c == '?' ? std::string("\x3D\xD8\xA8\xDD", 4) : std::string{c, '\0'};
    EXPECT_THAT(Places(wide), ElementsAre("3:54 malformed-filter"));
    EXPECT_THAT(Places("\xEF\xBB\xBF<x/>"), ElementsAre("1:1 no-bidi-namespace", "1:1 no-schema"));
}

TEST_F(CheckTest, KnowsEachKindOfFindingByOneId) {
    std::set<std::string_view> ids;
    for (const RuleText& rule : Rules()) {
        EXPECT_EQ(&About(rule.rule), &rule) << rule.id;
        EXPECT_TRUE(ids.insert(rule.id).second) << rule.id;
    }
}

TEST_F(CheckTest, TakesForANumberOnlyWhatIsOneThroughout) {
    const auto found = [&](const char* type, const std::string& text) {
        return !Findings({Printer(std::string("<Const name='A' type='") + type + "'>" + text + "</Const>")})
                    .empty();
    };
    for (const char* good : {"0", "-7", "+12", " 42\n", "2147483647", "-2147483648", "007"})
        EXPECT_FALSE(found("BIDI_INT", good)) << good;
    for (const char* bad :
         {"", "twelve", "12 pages", "1.5", "0x10", "2147483648", "-", "+-1", "1e3", "99999999999999999999"})
        EXPECT_TRUE(found("BIDI_INT", bad)) << bad;
    for (const char* good : {"0", "-7.25", "+.5", "1e3", "5000"})
        EXPECT_FALSE(found("BIDI_FLOAT", good)) << good;
    for (const char* bad : {"", "x", "1,5", "1.5 W", "1e99", "+-1"})
        EXPECT_TRUE(found("BIDI_FLOAT", bad)) << bad;
}

TEST_F(CheckTest, SaysOfAnElementInANamespaceThatItIsNotFoundThere) {
    const std::string open = std::string("<bidi:Definition ") + kBidi + ">\n";
    const std::string close = "</bidi:Definition>";
    const Case cases[] = {
        {"a schema", open + "<bidi:Schema/>" + close, {"2: error: bidi:Schema is in the namespace"}},
        {"beside one that counts", open + "<Schema/><bidi:Schema/>" + close, {"2: error: bidi:Schema is in"}},
        {"a level",
         open + "<Schema><bidi:Property name='A'/></Schema>" + close,
         {"2: error: bidi:Property is in"}},
        {"the root",
         std::string("<bidi:Schema ") + kBidi + "/>",
         {"1: error: bidi:Schema is in the namespace"}},
        {"around one that counts", std::string("<bidi:Schema ") + kBidi + "><Schema/></bidi:Schema>", {}},
        {"a stranger", open + "<Schema/><bidi:Other/>" + close, {"2: error: unknown element 'bidi:Other'"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, SaysInWhichLineXmlIsBroken) {
    const Case cases[] = {
        {"tags that do not match", "<a>\n<b>\n\n</a>", {"4: error: not well-formed"}},
        {"an attribute twice", "<a>\n<b\n x='1'\n x='2'/>\n</a>", {"4: error: not well-formed"}},
        {"an entity nobody declares", "<a>\n\n<b/>&nope;\n</a>", {"3: error: not well-formed"}},
        {"a prefix nobody declares", "<a>\n<p:b/>\n</a>", {"2: error: not well-formed"}},
        {"cut off", "<a>\n<b/>\n<c", {"3: error: not well-formed"}},
        {"two roots", "<a/>\n\n<b/>\n", {"3: error: not well-formed"}},
        {"bytes that are no UTF-8", "<a>\n<b/>\n\xE4</a>", {"3: error: not well-formed"}},
        {"nothing", "", {"1: error: the file is empty"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, RefusesFilesThatTheEngineWouldNotTake) {
    const Case cases[] = {
        {"not a Bidi file",
         std::string("<Schema ") + kPrint + "/>",
         {"1: error: the namespace http://schemas.microsoft.com/windows/2005/03/printing/bidi is not "
          "declared"}},
        {"a level as root",
         std::string("<Property ") + kBidi + " name=\"A\"/>",
         {"1: error: the root is Property"}},
        {"no schema", std::string("<x ") + kBidi + "><y/></x>", {"1: error: the file has no Schema element"}},
        {"any wrapper", std::string("<x ") + kBidi + "><Schema/></x>", {}},
        {"elements in a namespace",
         Schema("<Property name=\"A\"/>", "xmlns=\"urn:x\""),
         {"1: error: Schema is in the namespace 'urn:x'"}},
        {"two schemas, of which one is reached",
         std::string("<x ") + kBidi + ">\n<Schema name=\"A\"/>\n<Schema name=\"B\"/></x>",
         {"3: warning: this Schema is named 'B' and the first one 'A'"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, SaysOnceForEachFileWhatIsPassedOver) {
    const std::string leaf = R"(query="pri:S" filter="pri:S")";
    const Case cases[] = {
        {"each kind in its first line, with the number of places",
         Printer("<Value name=\"A\" xmllang=\"true\" " + leaf +
                 "/>\n<List name=\"B\" drvPrinterEvent=\"true\" " + leaf +
                 "/>\n<Value name=\"C\" optional=\"true\" drvPrinterEvent=\"1\" " + leaf +
                 ">no</Value>\n<Value name=\"D\" optional=\"true\" drvPrinterEvent=\"true\" " + leaf +
                 ">yes</Value>"),
         {"3: warning: xmllang has no effect: of a text in several languages the answer is the first",
          "4: warning: drvPrinterEvent has no effect: changes of a value are not reported; ask again to "
          "see them (here and in 2 more places)",
          "5: warning: the default text 'no' is not used: for a value that the printer does not send the "
          "answer is 232, no value (here and in 1 more place)"}},
        {"nothing is lost by what is off",
         Printer("<Value name=\"A\" xmllang=\"false\" optional=\"true\" drvPrinterEvent=\"0\" " + leaf +
                 "/>"),
         {}},
        {"more leaves than anyone wants to read of",
         [&] {
             std::string leaves;
             for (int i = 0; i < 600; ++i)
                 leaves +=
                     "<List name=\"L" + std::to_string(i) + "\" drvPrinterEvent=\"true\" " + leaf + "/>";
             return Printer(leaves);
         }(),
         {"3: warning: drvPrinterEvent"}},
        {"beside the schema",
         std::string("<x ") + kBidi + ">\n<PortStatus><Nope/></PortStatus><Schema/>\n<PortStatus/></x>",
         {"2: warning: PortStatus is not read: the port monitor below alone"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
    const std::string event = Printer("<List name=\"A\" drvPrinterEvent=\"true\" " + leaf + "/>");
    EXPECT_THAT(Findings({event, Schema("") + "<!-- -->",
                          Printer("<List name=\"B\" drvPrinterEvent=\"1\" " + leaf + "/>")}),
                ElementsAre(StartsWith("1.xml:3: warning: drv"), StartsWith("3.xml:3: warning: drv")));
}

TEST_F(CheckTest, TellsWhatWasMeantByWhatBelongsElsewhere) {
    const std::string secure = R"(xmlns:bidi="https://schemas.microsoft.com/windows/2005/03/printing/bidi")";
    const std::string draft = "http://schemas.microsoft.com/windows/2005/05/wdp/print";
    const std::string print = "https://schemas.microsoft.com/windows/2006/08/wdp/print";
    const Case cases[] = {
        {"the file's namespace",
         "<bidi:Definition " + secure + "><Schema/></bidi:Definition>",
         {"1: error: the namespace http://schemas.microsoft.com/windows/2005/03/printing/bidi is not "
          "declared; the engine refuses the file. It declares "
          "https://schemas.microsoft.com/windows/2005/03/printing/bidi, which is another one: write http: "
          "instead of https:"}},
        {"the printer's",
         Schema("", "xmlns:p='" + print + "'"),
         {"1: error: prefix 'p' stands for '" + print +
          "', but printers answer in 'http://schemas.microsoft.com/windows/2006/08/wdp/print': write http:"}},
        {"the printer's, as drafts called it",
         Schema("", "xmlns:p='" + draft + "'"),
         {"1: warning: prefix 'p' stands for '" + draft + "', but printers answer in"}},
        {"a vendor's own", Schema("", "xmlns:p='https://velun.example/print'"), {}},
        {"what says where a value lies by SNMP",
         Printer("<Value name=\"A\" query=\"pri:S\" filter=\"pri:S\" oid=\"1.3.6\"/>\n<IndexedProperty/>"),
         {"3: error: unknown attribute 'oid' of Value; it belongs to files for the TCP/IP port monitor",
          "4: error: unknown element 'IndexedProperty'; it belongs to files for the TCP/IP"}},
    };
    for (const Case& expected : cases)
        ExpectFindings(expected, Findings({expected.content}));
}

TEST_F(CheckTest, LooksAtFilesAsTheSetThatAPrinterLoads) {
    const std::string base = Printer("<Const name=\"A\"/>");
    EXPECT_THAT(Findings({base, Printer("<Const name=\"B\"/>")}), IsEmpty());
    EXPECT_THAT(Findings({base, Printer("\n<Const name=\"A\"/>")}),
                ElementsAre(testing::ContainsRegex(
                    "^2.xml:4: warning: the leaf .*1.xml:3, and that declaration holds")));
    EXPECT_THAT(
        Findings({base, Printer("<Value name=\"A\" query=\"pri:S\" filter=\"pri:S\"/>")}),
        ElementsAre(testing::ContainsRegex("^2.xml:3: error: the leaf .*1.xml:3; the path would have two")));

    // One file may lean on the prefixes of another, and must not give them another meaning.
    const std::string bare =
        std::string("<Schema ") + kBidi +
        "><Property name=\"Q\"><Value name=\"A\" query=\"pri:S\" filter=\"pri:S\"/></Property></Schema>";
    EXPECT_THAT(Findings({bare, base}), IsEmpty());
    const std::string scan = std::string("<Schema ") + kBidi + " xmlns:pri=\"urn:scan\"/>";
    EXPECT_THAT(Findings({base, scan}),
                ElementsAre(StartsWith("2.xml:1: error: prefix 'pri' stands for 'urn:scan' here")));

    const std::string wrapped = std::string("<x ") + kBidi + "><Schema/></x>";
    EXPECT_THAT(Findings({base, wrapped}), ElementsAre(StartsWith("2.xml:1: error: the root is 'x'")));
    EXPECT_THAT(Findings({"<a>", base, "<b>"}),
                ElementsAre(StartsWith("1.xml:1: "), StartsWith("3.xml:1: ")));
}

}  // namespace
}  // namespace vlm::ctl
