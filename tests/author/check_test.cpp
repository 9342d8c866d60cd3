// What the checker says about extension files that XML alone finds nothing wrong with, and where.
#include "tools/vlmctl/extension_files/check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/support/text.h"
#include "tests/util/temp_dir.h"
#include "util/com.h"
#include "util/text.h"

namespace vlm::ctl {
namespace {

using test::Utf16;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kBidi = "xmlns:bidi='http://schemas.microsoft.com/windows/2005/03/printing/bidi'";
const std::string kPrint = "xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print'";
const std::string kFrom = " query='pri:S' filter='pri:S'";

std::string Schema(const std::string& body, const std::string& attributes = "") {
    return "<Schema " + kBidi + " " + kPrint + " " + attributes + ">\n" + body + "\n</Schema>\n";
}

// `body` begins in line 3.
std::string Printer(const std::string& body) {
    return Schema("<Property name='Printer'>\n" + body + "\n</Property>");
}

// One leaf; its filter begins in column 39.
std::string Value(const std::string& filter, const std::string& before = "") {
    return Printer(before + R"(<Value name="A" query="pri:S" filter=")" + filter + "\"/>");
}

// A root of any name, which is all that a file needs around its Schema.
std::string Wrapped(const std::string& body) {
    return "<x " + kBidi + ">" + body + "</x>";
}

struct Case {
    const char* what;
    std::string content;
    std::vector<std::string> findings;
};

class CheckTest : public testing::Test {
 protected:
    // On files of these contents, named "1.xml", "2.xml", ...
    CheckReport Check(const std::vector<std::string>& contents) {
        std::vector<std::wstring> paths;
        for (const std::string& content : contents)
            paths.push_back(folder_.Write(std::to_wstring(paths.size() + 1) + L".xml", content));
        return CheckExtensionFiles(paths);
    }
    // Where the findings on the content are and of what kind: "3:7 no-schema".
    std::vector<std::string> Places(const std::string& content) {
        std::vector<std::string> places;
        for (const Finding& finding : Check({content}).findings) {
            places.push_back(std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column) +
                             " " + std::string(About(finding.rule).id));
        }
        return places;
    }
    // Each as "1.xml:3: error: text".
    std::vector<std::string> Findings(const std::vector<std::string>& contents) {
        const CheckReport report = Check(contents);
        EXPECT_THAT(report.unreadable, IsEmpty());
        std::vector<std::string> findings;
        for (const Finding& finding : report.findings) {
            findings.push_back(std::filesystem::path(finding.file).filename().string() + ":" +
                               std::to_string(finding.place.line) +
                               (finding.HowBad() == Severity::kError ? ": error: " : ": warning: ") +
                               ToUtf8(finding.text));
        }
        return findings;
    }
    // The findings on each content alone begin so, behind "1.xml:".
    void ExpectFindings(const std::vector<Case>& cases) {
        for (const Case& expected : cases) {
            SCOPED_TRACE(expected.what);
            std::vector<testing::Matcher<std::string>> matchers;
            for (const std::string& finding : expected.findings)
                matchers.push_back(StartsWith("1.xml:" + finding));
            EXPECT_THAT(Findings({expected.content}), ElementsAreArray(matchers));
        }
    }

 private:
    const ComApartment apartment_{COINIT_MULTITHREADED};
    const test::TempDir folder_;
};

TEST_F(CheckTest, FindsWhatIsWrongWithQueriesAndFilters) {
    ExpectFindings({
        {"in order", Value("pri:S/pri:A[@Id='x:y' and position()=1]/text()"), {}},
        {"a slash too many at the end", Value("pri:S/"), {"3: error: "}},
        {"a slash too many at the start", Value("/pri:S"), {"3: error: "}},
        {"a function that does not exist",
         Value("pri:S[matches(pri:A, 'x')]"),
         {"3: error: the filter 'pri:S[matches(pri:A, 'x')]' calls 'matches'"}},
        {"prefixes that nothing declares",
         Printer("<Value name='A' query='a:S' filter='b:S/@c:A'/>"),
         {"3: error: the prefix 'a' in query", "3: error: the prefix 'b' in filter",
          "3: error: the prefix 'c'"}},
        {"a prefix declared where it does not count",
         Printer("<Value xmlns:x='urn:x' name='A' query='x:S' filter='pri:S'/>"),
         {"3: error: the prefix 'x' in query is not declared on the Schema element"}},
        {"a prefix in a string is none", Value("pri:S[.='x:y']"), {}},
        {"starts at the same name without namespace",
         Value("S/pri:T"),
         {"3: warning: the filter starts at 'S'"}},
        {"starts at the same element by another prefix",
         Schema("<Property name='P'><Value name='A' query='pri:S' filter='q:S'/></Property>",
                "xmlns:q='http://schemas.microsoft.com/windows/2006/08/wdp/print'"),
         {}},
        {"starts by an axis", Value("descendant-or-self::pri:S/@x"), {}},
        {"starts at no name", Value("*[self::pri:S]"), {}},
        {"not asked for", Printer("<Value name='A' filter='pri:S'/>"), {"3: warning: Value has no 'query'"}},
        {"asked for by the level is not enough",
         Schema("<Property name='P' query='pri:S'><Value name='A' filter='pri:S'/></Property>"),
         {"2: warning: Value has no 'query'"}},
    });
}

TEST_F(CheckTest, FollowsWhereParametersAreBound) {
    const std::string uses = " filter=\"pri:S[.='$C$']\"";
    // A Parameter that makes levels of its own, and one that stands in the level that it makes.
    const auto template_ = [](const std::string& inside) {
        return "<Parameter name='$C$' parameter='C'" + kFrom + ">" + inside + "</Parameter>";
    };
    const std::string standing = "<Parameter parameter='C'" + kFrom + "/>";
    ExpectFindings({
        {"a template asks and binds for what is in it",
         Printer(template_("<Value name='$C$'" + uses + "/>")),
         {}},
        {"an empty one does so for its level",
         Printer("<Property name='x$C$'><Value name='A'" + uses + "/>" + standing + "</Property>"),
         {}},
        {"a later one may use an earlier one",
         Printer("<Property name='$C$$D$'>" + standing + "<Parameter parameter='D'" + uses + "/></Property>"),
         {}},
        {"but not the other way round, nor itself",
         Printer("<Property name='$C$$D$'><Parameter parameter='D' query='pri:S'" + uses +
                 "/>\n<Parameter parameter='C' query='pri:S'" + uses + "/></Property>"),
         {"3: error: no Parameter around it binds 'C'", "4: error: no Parameter around it binds 'C'"}},
        {"nothing is bound beside",
         Printer(template_("") + "\n<Value name='A' query='pri:S'" + uses + "/>"),
         {"4: error: no Parameter around it binds 'C', which its filter uses"}},
        {"nor in names",
         Printer("<Property name='$C$'/><Const name='$D$'/>"),
         {"3: warning: the name '$C$' keeps its '$': no Parameter around it binds 'C'",
          "3: warning: the name '$D$' keeps its '$': no Parameter around it binds 'D'"}},
        {"a '$' that is none of a parameter's",
         Printer(template_("<Const name='US$Rate'/><Const name='$C$$X'/>")),
         {}},
        {"inner ones see outer ones",
         Printer(template_("<Parameter name='$D$' parameter='D'" + uses +
                           "><Value name='A' filter=\"pri:S[.='$C$' or .='$D$' or .='$E$']\"/></Parameter>")),
         {"3: error: no Parameter around it binds 'E'"}},
        {"bound twice",
         Printer(template_("\n" + template_(""))),
         {"4: error: the parameter 'C' is already bound, in line 3"}},
        {"a dollar too few", Value("pri:S[.='$C']"), {"3: error: the '$' signs in filter"}},
        {"two dollars around nothing",
         Printer("<Property name='$$'>" + standing + "</Property>"),
         {"3: warning: the name '$$' does not use", "3: error: the '$' signs in name"}},
        {"the levels would all be called the same",
         Printer("<Property name='Color'>\n" + standing + "</Property>"),
         {"3: warning: the name 'Color' does not use the parameter 'C'"}},
        {"a template without its parameter in its name",
         Printer("<Parameter name='Color' parameter='C'" + kFrom + "><Const name='A'/></Parameter>"),
         {"2: warning: the name 'Printer' does not use",
          "3: error: a Parameter that makes levels of its own"}},
        {"an empty one that has no level to bind",
         Printer(template_("<Parameter parameter='D'" + kFrom + "/>")),
         {"3: error: a Parameter that makes levels of its own needs a name that uses it, such as '$D$'"}},
    });
}

TEST_F(CheckTest, FindsWhatIsDeclaredTwice) {
    ExpectFindings({
        {"a leaf",
         Printer("<Const name='A'/>\n<List name='A'" + kFrom + "/>"),
         {"4: error: the leaf '\\Printer:A' is already declared in line 3; the path would have two "
          "answers"}},
        {"a leaf in two levels that are one",
         Schema("<Property name='P'><Const name='A'/></Property>\n"
                "<Property name='P'><Const name='A'/></Property>"),
         {"3: warning: Property 'P' is already declared here, in line 2",
          "3: error: the leaf '\\P:A' is already declared"}},
        {"the same name elsewhere is no repetition",
         Printer("<Const name='A'/><Property name='A'><Const name='A'/></Property>"),
         {}},
    });
}

TEST_F(CheckTest, SaysInWhichLineATagBegins) {
    ExpectFindings({
        {"markup in a comment",
         Printer("<!-- <Nope>\n -->\n<Value\n  name='A'\n  kind='<'/>"),
         {"7: error: not well-formed"}},
        {"a bracket in a value",
         Printer("<!-- <Nope>\n -->\n<Value\n  name='A>'\n  kind='x'/>\n<Nope/>"),
         {"5: error: Value has no", "7: error: unknown attribute 'kind'",
          "8: error: unknown element 'Nope'"}},
        {"two bytes a character", Utf16(Printer("\n<Nope/>")), {"4: error: unknown element 'Nope'"}},
    });
}

TEST_F(CheckTest, PointsAtTheAttributeAndAtTheCharacterInIt) {
    const std::string binds = "<Parameter name='$P$' parameter='P'" + kFrom + ">\n<Value name='A'";
    std::string pair = Utf16(Value("pri:S[.='?' and"));
    pair.replace(pair.find(std::string("?\0", 2)), 2, "\x3D\xD8\xA8\xDD");
    const Case cases[] = {
        {"a predicate that is missing", Value("pri:S[]"), {"3:45 malformed-filter"}},
        {"an end that is missing", Value("pri:S["), {"3:45 malformed-filter"}},
        {"what cannot follow", Value("pri:S pri:T"), {"3:45 malformed-filter"}},
        {"a string without end", Value("pri:S[.='x]"), {"3:47 malformed-filter"}},
        {"no nodes", Value("pri:S = 1"), {"3:39 malformed-filter"}},
        {"behind a parameter",
         Printer(binds + " query='pri:S' filter=\"pri:S[.='$P$' ! 1]\"/></Parameter>"),
         {"4:53 malformed-filter"}},
        {"references and what lies beyond the first 65,536 characters",
         Value("pri:S[.=&quot;&#x1F5A8;\xF0\x9F\x96\xA8&amp;&quot; x:y()]"),
         {"3:75 undeclared-prefix"}},
        {"line ends in the attribute", Value("pri:S[.='a\n b\r\n c' and\n  ]"), {"6:3 malformed-filter"}},
        {"letters of two bytes in front",
         Value("pri:S[", "<!-- \xC3\xA4\xC3\xB6 -->"),
         {"3:56 malformed-filter"}},
        {"letters of one byte in front",
         "<?xml version='1.0' encoding='iso-8859-1'?>" + Value("pri:S[", "<!-- \xE4\xF6 -->"),
         {"3:56 malformed-filter"}},
        {"two bytes a character, and a pair", pair, {"3:54 malformed-filter"}},
        {"a byte order mark", "\xEF\xBB\xBF<x/>", {"1:1 no-bidi-namespace", "1:1 no-schema"}},
        {"a prefix, a function, a parameter",
         Value("pri:S[x:a and foo() and $P$='$P$']"),
         {"3:45 undeclared-prefix", "3:53 unknown-function", "3:63 unbound-parameter",
          "3:63 unquoted-parameter", "3:68 unbound-parameter"}},
        {"the first use outside of quotes",
         Printer(binds + " query='pri:S' filter=\"pri:S['$P$'=$P$]\"/></Parameter>"),
         {"4:51 unquoted-parameter"}},
        {"where a filter starts", Value("child::pri:T"), {"3:46 filter-start"}},
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
    for (const Case& expected : cases)
        EXPECT_EQ(Places(expected.content), expected.findings) << expected.what;
}

TEST_F(CheckTest, KnowsEachKindOfFindingByOneId) {
    std::set<std::string_view> ids;
    for (const RuleText& rule : Rules()) {
        EXPECT_EQ(&About(rule.rule), &rule) << rule.id;
        EXPECT_TRUE(ids.insert(rule.id).second) << rule.id;
    }
}

TEST_F(CheckTest, TakesForANumberOnlyWhatIsOneThroughout) {
    const struct {
        const char* type;
        std::vector<const char*> good;
        std::vector<const char*> bad;
    } cases[] = {
        {"BIDI_INT",
         {"0", "-7", "+12", " 42\n", "2147483647", "-2147483648", "007"},
         {"", "twelve", "12 pages", "1.5", "0x10", "2147483648", "-", "+-1", "1e3", "99999999999999999999"}},
        {"BIDI_FLOAT", {"0", "-7.25", "+.5", "1e3", "5000"}, {"", "x", "1,5", "1.5 W", "1e99", "+-1"}},
    };
    for (const auto& [type, good, bad] : cases) {
        const auto findings = [&, type = type](const std::string& text) {
            return Findings(
                {Printer(std::string("<Const name='A' type='") + type + "'>" + text + "</Const>")});
        };
        for (const char* text : good)
            EXPECT_THAT(findings(text), IsEmpty()) << text;
        for (const char* text : bad)
            EXPECT_THAT(findings(text), testing::Not(IsEmpty())) << text;
    }
}

TEST_F(CheckTest, SaysOfAnElementInANamespaceThatItIsNotFoundThere) {
    const std::string open = "<bidi:Definition " + kBidi + ">\n";
    const std::string close = "</bidi:Definition>";
    ExpectFindings({
        {"a schema", open + "<bidi:Schema/>" + close, {"2: error: bidi:Schema is in the namespace"}},
        {"beside one that counts", open + "<Schema/><bidi:Schema/>" + close, {"2: error: bidi:Schema is in"}},
        {"a level",
         open + "<Schema><bidi:Property name='A'/></Schema>" + close,
         {"2: error: bidi:Property is in"}},
        {"the root", "<bidi:Schema " + kBidi + "/>", {"1: error: bidi:Schema is in the namespace"}},
        {"around one that counts", "<bidi:Schema " + kBidi + "><Schema/></bidi:Schema>", {}},
        {"a stranger", open + "<Schema/><bidi:Other/>" + close, {"2: error: unknown element 'bidi:Other'"}},
    });
}

TEST_F(CheckTest, SaysInWhichLineXmlIsBroken) {
    ExpectFindings({
        {"tags that do not match", "<a>\n<b>\n\n</a>", {"4: error: not well-formed"}},
        {"an entity nobody declares", "<a>\n\n<b/>&nope;\n</a>", {"3: error: not well-formed"}},
        {"a prefix nobody declares", "<a>\n<p:b/>\n</a>", {"2: error: not well-formed"}},
        {"two roots", "<a/>\n\n<b/>\n", {"3: error: not well-formed"}},
        {"bytes that are no UTF-8", "<a>\n<b/>\n\xE4</a>", {"3: error: not well-formed"}},
        {"nothing", "", {"1: error: the file is empty"}},
    });
}

TEST_F(CheckTest, RefusesFilesThatTheEngineWouldNotTake) {
    ExpectFindings({
        {"not a Bidi file",
         "<Schema " + kPrint + "/>",
         {"1: error: the namespace http://schemas.microsoft.com/windows/2005/03/printing/bidi is not "
          "declared"}},
        {"a level as root", "<Property " + kBidi + " name='A'/>", {"1: error: the root is Property"}},
        {"no schema", Wrapped("<y/>"), {"1: error: the file has no Schema element"}},
        {"any wrapper", Wrapped("<Schema/>"), {}},
        {"elements in a namespace",
         Schema("<Property name='A'/>", "xmlns='urn:x'"),
         {"1: error: Schema is in the namespace 'urn:x'"}},
        {"two schemas, of which one is reached",
         Wrapped("\n<Schema name='A'/>\n<Schema name='B'/>"),
         {"3: warning: this Schema is named 'B' and the first one 'A'"}},
    });
}

TEST_F(CheckTest, SaysOnceForEachFileWhatIsPassedOver) {
    const std::string event = "<List name='A' drvPrinterEvent='true'" + kFrom + "/>";
    std::string events;
    for (int i = 0; i < 600; ++i)
        events += "<List name='L" + std::to_string(i) + "' drvPrinterEvent='true'" + kFrom + "/>";
    ExpectFindings({
        {"nothing is lost by what is off",
         Printer("<Value name='A' xmllang='false' optional='true' drvPrinterEvent='0'" + kFrom + "/>"),
         {}},
        {"more leaves than anyone wants to read of",
         Printer(events),
         {"3: warning: drvPrinterEvent has no effect: changes of a value are not reported; ask again to "
          "see them (here and in 599 more places)"}},
    });
    EXPECT_THAT(Findings({Printer(event), Schema("") + "<!-- -->",
                          Printer("<List name='B' drvPrinterEvent='1'" + kFrom + "/>")}),
                ElementsAre(StartsWith("1.xml:3: warning: drv"), StartsWith("3.xml:3: warning: drv")));
}

TEST_F(CheckTest, TellsWhatWasMeantByWhatBelongsElsewhere) {
    const std::string draft = "http://schemas.microsoft.com/windows/2005/05/wdp/print";
    const std::string print = "https://schemas.microsoft.com/windows/2006/08/wdp/print";
    ExpectFindings({
        {"the file's namespace",
         "<b:D xmlns:b='https://schemas.microsoft.com/windows/2005/03/printing/bidi'><Schema/></b:D>",
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
         Printer("<Value name='A' oid='1.3.6'" + kFrom + "/>\n<IndexedProperty/>"),
         {"3: error: unknown attribute 'oid' of Value; it belongs to files for the TCP/IP port monitor",
          "4: error: unknown element 'IndexedProperty'; it belongs to files for the TCP/IP"}},
    });
}

TEST_F(CheckTest, LooksAtFilesAsTheSetThatAPrinterLoads) {
    const std::string base = Printer("<Const name='A'/>");
    EXPECT_THAT(Findings({base, Printer("<Const name='B'/>")}), IsEmpty());
    EXPECT_THAT(Findings({base, Printer("\n<Const name='A'/>")}),
                ElementsAre(testing::ContainsRegex(
                    "^2.xml:4: warning: the leaf .*1.xml:3, and that declaration holds")));
    EXPECT_THAT(
        Findings({base, Value("pri:S")}),
        ElementsAre(testing::ContainsRegex("^2.xml:3: error: the leaf .*1.xml:3; the path would have two")));

    // One file may lean on the prefixes of another, and must not give them another meaning.
    const std::string bare =
        "<Schema " + kBidi + "><Property name='Q'><Value name='A'" + kFrom + "/></Property></Schema>";
    EXPECT_THAT(Findings({bare, base}), IsEmpty());
    EXPECT_THAT(Findings({base, "<Schema " + kBidi + " xmlns:pri='urn:scan'/>"}),
                ElementsAre(StartsWith("2.xml:1: error: prefix 'pri' stands for 'urn:scan' here")));

    EXPECT_THAT(Findings({base, Wrapped("<Schema/>")}),
                ElementsAre(StartsWith("2.xml:1: error: the root is 'x'")));
    EXPECT_THAT(Findings({"<a>", base, "<b>"}),
                ElementsAre(StartsWith("1.xml:1: "), StartsWith("3.xml:1: ")));
}

}  // namespace
}  // namespace vlm::ctl
