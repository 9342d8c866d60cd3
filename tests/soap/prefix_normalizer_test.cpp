// The normalizer behind a real namespace-aware parser: what goes in and what comes out is read by expat.
#include "soap/prefix_normalizer.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "expat_events.h"
#include "random_document.h"

namespace vlm {
namespace {

constexpr wchar_t kPrint[] = L"http://schemas.microsoft.com/windows/2006/08/wdp/print";

std::string Normalize(std::string_view document, const std::vector<NamespaceDeclaration>& wanted) {
    Feed feed(wanted);
    if (!ParseNamespaces(document, &feed)) return "not well-formed";
    return feed.refused ? "too many" : Narrow(feed.normalizer.Finish());
}

TEST(PrefixNormalizer, GivesEachNamespaceOnePrefixOnTheRoot) {
    const std::string P = Narrow(kPrint);
    const std::vector<NamespaceDeclaration> none;
    const std::vector<NamespaceDeclaration> wprt = {{L"wprt", kPrint}, {L"nprt", L"urn:vendor"}};
    const struct {
        const char* what;
        std::string document;
        std::vector<NamespaceDeclaration> wanted;
        std::string expected;
    } rows[] = {
        {"the printer's prefix is another", "<s:E xmlns:s='urn:s' xmlns:q='" + P + "'><q:a q:b='1'/></s:E>",
         wprt,
         "<s:E xmlns:s=\"urn:s\" xmlns:q=\"" + P + "\" xmlns:wprt=\"" + P +
             "\"><wprt:a wprt:b=\"1\"/></s:E>"},
        {"no prefix is wanted", "<s:E xmlns:s='urn:s'><a xmlns='" + P + "'>t</a></s:E>", none,
         "<s:E xmlns:s=\"urn:s\" xmlns:pri=\"" + P + "\"><pri:a>t</pri:a></s:E>"},
        {"nested and declared twice",
         "<s:E xmlns:s='urn:s'><x:a xmlns:x='" + P + "'><y:b xmlns:y='" + P +
             "'/><y:c xmlns:y='urn:vendor'/></x:a></s:E>",
         wprt,
         "<s:E xmlns:s=\"urn:s\" xmlns:wprt=\"" + P +
             "\" xmlns:nprt=\"urn:vendor\"><wprt:a><wprt:b/><nprt:c/></wprt:a></s:E>"},
        {"the default namespace is the envelope's",
         "<E xmlns='urn:s'><B><a xmlns='" + P + "'><n xmlns=''><E xmlns='urn:s'/></n></a></B></E>", wprt,
         "<E xmlns=\"urn:s\" xmlns:wprt=\"" + P +
             "\"><B><wprt:a><n xmlns=\"\"><E xmlns=\"urn:s\"/></n></wprt:a></B></E>"},
        {"an attribute of the root's default namespace", "<E xmlns='urn:s'><a xmlns:p='urn:s' p:b='1'/></E>",
         none, "<E xmlns=\"urn:s\" xmlns:ns1=\"urn:s\"><a ns1:b=\"1\"/></E>"},
        {"the wanted prefix is taken on the root",
         "<s:E xmlns:s='urn:s' xmlns:wprt='urn:other'><a xmlns='" + P + "'/></s:E>", wprt,
         "<s:E xmlns:s=\"urn:s\" xmlns:wprt=\"urn:other\" xmlns:ns1=\"" + P + "\"><ns1:a/></s:E>"},
        {"a nested prefix is wanted for another namespace",
         "<s:E xmlns:s='urn:s'><nprt:a xmlns:nprt='urn:x'/></s:E>", wprt,
         "<s:E xmlns:s=\"urn:s\" xmlns:ns1=\"urn:x\"><ns1:a/></s:E>"},
        {"pri stands for something else",
         "<s:E xmlns:s='urn:s'><pri:a xmlns:pri='urn:x'/><b xmlns='" + P + "'/></s:E>", none,
         "<s:E xmlns:s=\"urn:s\" xmlns:ns1=\"urn:x\" xmlns:pri=\"" + P + "\"><ns1:a/><pri:b/></s:E>"},
        {"two nested namespaces share a prefix",
         "<s:E xmlns:s='urn:s'><x:a xmlns:x='urn:1'/><x:b xmlns:x='urn:2'/></s:E>", none,
         "<s:E xmlns:s=\"urn:s\" xmlns:x=\"urn:1\" xmlns:ns1=\"urn:2\"><x:a/><ns1:b/></s:E>"},
        {"the xml prefix and bare attributes stay",
         "<s:E xmlns:s='urn:s'><s:a xml:lang='de' Name='x:y'/></s:E>", none,
         "<s:E xmlns:s=\"urn:s\"><s:a xml:lang=\"de\" Name=\"x:y\"/></s:E>"},
        {"names in ElementData follow their namespace",
         "<s:E xmlns:s='urn:s'><q:ElementData xmlns:q='" + P + "' Name='q:A'/><q:ElementData xmlns:q='" + P +
             "' xmlns:v='urn:vendor' q:Name='v:B'/><q:ElementData xmlns:q='" + P + "' Name='w:C'/></s:E>",
         wprt,
         "<s:E xmlns:s=\"urn:s\" xmlns:wprt=\"" + P +
             "\" xmlns:nprt=\"urn:vendor\"><wprt:ElementData Name=\"wprt:A\"/>"
             "<wprt:ElementData wprt:Name=\"nprt:B\"/><wprt:ElementData Name=\"w:C\"/></s:E>"},
        {"names in ElementData may be of the default namespace",
         "<s:E xmlns:s='urn:s'><ElementData xmlns='" + P + "' Name='A'/></s:E>", wprt,
         "<s:E xmlns:s=\"urn:s\" xmlns:wprt=\"" + P + "\"><wprt:ElementData Name=\"wprt:A\"/></s:E>"},
        {"text that a parser would change",
         "<s:E xmlns:s='urn:s'><a b='&amp;&lt;&quot;&#9;&#10;&#13;.'>&amp;&lt;&gt;&#13;\"'\n.</a></s:E>",
         none,
         "<s:E xmlns:s=\"urn:s\"><a b=\"&amp;&lt;&quot;&#9;&#10;&#13;.\">&amp;&lt;&gt;&#13;\"'\n.</a></s:E>"},
        {"white space at the ends of texts and values, in pieces",
         "<s:E xmlns:s='urn:s'>\n <a b=' x y '>\r\n <![CDATA[ t]]><!-- --><![CDATA[ u ]]>&#13;\n</a>\n <c> "
         "</c>\n</s:E>",
         none, "<s:E xmlns:s=\"urn:s\">\n <a b=\"x y\">t u</a>\n <c/></s:E>"},
        {"white space between text and elements", "<E><a>t <b>u</b> v </a></E>", none,
         "<E><a>t <b>u</b> v</a></E>"},
        {"nested declarations that nothing uses",
         "<s:E xmlns:s='urn:s' xmlns:r='urn:r'><s:a xmlns:x='urn:x' xmlns='urn:y'><b xmlns=''/></s:a></s:E>",
         none, "<s:E xmlns:s=\"urn:s\" xmlns:r=\"urn:r\"><s:a><b/></s:a></s:E>"},
        {"a root prefix that the files have for another namespace: they notice",
         "<nprt:E xmlns:nprt='urn:third'/>", wprt, "<nprt:E xmlns:nprt=\"urn:third\"></nprt:E>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Normalize(row.document, row.wanted), row.expected) << row.what;
}

TEST(PrefixNormalizer, RefusesADocumentWithNamespacesWithoutEnd) {
    std::string onRoot = "<r";
    std::string nested = "<r>";
    for (size_t i = 0; i <= PrefixNormalizer::kMostNamespaces; ++i) {
        const std::string n = std::to_string(i);
        onRoot.append(" xmlns:p").append(n).append("='urn:").append(n).append("'");
        nested.append("<p:a xmlns:p='urn:").append(n).append("'/>");
    }
    EXPECT_EQ(Normalize(onRoot + "/>", {}), "too many");
    EXPECT_EQ(Normalize(nested + "</r>", {}), "too many");
}

TEST(PrefixNormalizer, ChangesNoMeaningOfAnyDocument) {
    const std::vector<NamespaceDeclaration> queries[] = {
        {}, {{L"wprt", kPrint}, {L"p", L"urn:c"}}, {{L"pri", L"urn:a"}}};
    std::mt19937 random(7);
    for (int round = 0; round < 1000; ++round) {
        std::string document;
        AppendRandomElement([&](size_t count) { return random() % count; }, 0, {}, &document);
        const std::string normalized = Normalize(document, queries[round % 3]);
        Meaning before;
        Meaning after;
        ASSERT_TRUE(ParseNamespaces(document, &before)) << document;
        ASSERT_TRUE(ParseNamespaces(normalized, &after)) << document << "\n" << normalized;
        ASSERT_TRUE(before.IsKeptBy(after)) << document << "\n" << normalized;
    }
}

}  // namespace
}  // namespace vlm
