// The normalizer behind a real namespace-aware parser: what goes in and what comes out is read by expat.
#include "soap/prefix_normalizer.h"

#include <expat.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace vlm {
namespace {

constexpr wchar_t kPrint[] = L"http://schemas.microsoft.com/windows/2006/08/wdp/print";

std::wstring Wide(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string Narrow(std::wstring_view text) {
    std::string narrow;
    for (const wchar_t c : text)
        narrow += static_cast<char>(c);
    return narrow;
}

// Receives a document's events, names resolved.
class Events {
 public:
    virtual ~Events() = default;
    virtual void Declare(std::wstring_view prefix, std::wstring_view uri) = 0;
    virtual void EndDeclaration() = 0;
    virtual void Start(const XmlName& name, const XmlAttributes& attributes) = 0;
    virtual void End() = 0;
    virtual void Text(std::wstring_view text) = 0;
};

constexpr char kSeparator = '\n';

struct SplitName {
    std::wstring uri;
    std::wstring local;
};

SplitName Split(const char* name) {
    const std::wstring whole = Wide(name);
    const size_t separator = whole.find(kSeparator);
    if (separator == std::wstring::npos) return {L"", whole};
    return {whole.substr(0, separator), whole.substr(separator + 1)};
}

// False when `document` is not well-formed.
bool Parse(std::string_view document, Events* events) {
    const XML_Parser parser = XML_ParserCreateNS("ISO-8859-1", kSeparator);
    XML_SetUserData(parser, events);
    XML_SetNamespaceDeclHandler(
        parser,
        [](void* data, const char* prefix, const char* uri) {
            static_cast<Events*>(data)->Declare(Wide(prefix ? prefix : ""), Wide(uri ? uri : ""));
        },
        [](void* data, const char*) { static_cast<Events*>(data)->EndDeclaration(); });
    XML_SetElementHandler(
        parser,
        [](void* data, const char* name, const char** pairs) {
            std::vector<SplitName> names;
            std::vector<std::wstring> values;
            for (; *pairs != nullptr; pairs += 2) {
                names.push_back(Split(pairs[0]));
                values.push_back(Wide(pairs[1]));
            }
            XmlAttributes attributes;
            for (size_t i = 0; i < names.size(); ++i) {
                attributes.push_back({{names[i].uri, names[i].local}, values[i]});
            }
            const SplitName element = Split(name);
            static_cast<Events*>(data)->Start({element.uri, element.local}, attributes);
        },
        [](void* data, const char*) { static_cast<Events*>(data)->End(); });
    XML_SetCharacterDataHandler(parser, [](void* data, const char* text, int length) {
        static_cast<Events*>(data)->Text(Wide({text, static_cast<size_t>(length)}));
    });
    const bool good =
        XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return good;
}

class Feed : public Events {
 public:
    explicit Feed(const std::vector<NamespaceDeclaration>& wanted) : normalizer(wanted) {}
    void Declare(std::wstring_view prefix, std::wstring_view uri) override {
        tooMany = !normalizer.Declare(prefix, uri) || tooMany;
    }
    void EndDeclaration() override { normalizer.EndDeclaration(); }
    void Start(const XmlName& name, const XmlAttributes& attributes) override {
        tooMany = !normalizer.StartElement(name, attributes) || tooMany;
    }
    void End() override { normalizer.EndElement(); }
    void Text(std::wstring_view text) override { normalizer.Text(text); }

    PrefixNormalizer normalizer;
    bool tooMany = false;
};

// What a document says, whatever its prefixes.
class Meaning : public Events {
 public:
    void Declare(std::wstring_view, std::wstring_view) override {}
    void EndDeclaration() override {}
    void Start(const XmlName& name, const XmlAttributes& attributes) override {
        std::map<std::wstring, std::wstring> sorted;
        for (const XmlAttribute& a : attributes) {
            sorted[L"{" + std::wstring(a.name.uri) + L"}" + std::wstring(a.name.local)] = a.value;
        }
        text += L"<{" + std::wstring(name.uri) + L"}" + std::wstring(name.local);
        for (const auto& [key, value] : sorted)
            text.append(L" ").append(key).append(L"=[").append(value).append(L"]");
        text += L">";
    }
    void End() override { text += L"</>"; }
    void Text(std::wstring_view piece) override { text += piece; }

    std::wstring text;
};

std::string Normalize(std::string_view document, const std::vector<NamespaceDeclaration>& wanted) {
    Feed feed(wanted);
    if (!Parse(document, &feed)) return "not well-formed";
    return feed.tooMany ? "too many" : Narrow(feed.normalizer.Finish());
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
        {"a nested prefix that the files have for another namespace",
         "<s:E xmlns:s='urn:s'><nprt:a xmlns:nprt='urn:third' nprt:k='1'/></s:E>",
         {{L"nprt", L"urn:vendor"}},
         "<s:E xmlns:s=\"urn:s\" xmlns:ns1=\"urn:third\"><ns1:a ns1:k=\"1\"/></s:E>"},
        {"a root prefix that the files have for another namespace: they notice",
         "<nprt:E xmlns:nprt='urn:third'/>",
         {{L"nprt", L"urn:vendor"}},
         "<nprt:E xmlns:nprt=\"urn:third\"></nprt:E>"},
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

// A random element, its declarations drawn from few prefixes and namespaces so that they clash often.
void AppendRandomElement(std::mt19937* random, int depth, std::map<std::string, std::string> scope,
                         std::string* out) {
    const char* const uris[] = {"urn:a", "urn:b", "urn:c",
                                "http://schemas.microsoft.com/windows/2006/08/wdp/print"};
    const char* const prefixes[] = {"", "p", "q", "pri", "wprt", "ns1"};
    const auto any = [&](size_t count) { return (*random)() % count; };
    std::string declarations;
    for (size_t i = any(3); i > 0; --i) {
        const std::string prefix = prefixes[any(std::size(prefixes))];
        const std::string declaration = prefix.empty() ? " xmlns='" : " xmlns:" + prefix + "='";
        if (declarations.find(declaration) != std::string::npos) continue;
        const std::string uri = prefix.empty() && any(3) == 0 ? "" : uris[any(std::size(uris))];
        scope[prefix] = uri;
        declarations.append(declaration).append(uri).append("'");
    }
    auto entry = scope.begin();
    if (!scope.empty()) std::advance(entry, any(scope.size()));
    const std::string prefix = scope.empty() || entry->first.empty() ? "" : entry->first + ":";
    const std::string name = prefix + "abc"[any(3)];
    *out += "<" + name + declarations;
    if (any(2) == 0) *out += " x='1'";
    if (!prefix.empty() && any(2) == 0) *out += " " + prefix + "y='y&#10;&lt;&quot;'";
    *out += ">";
    for (size_t i = depth < 5 ? any(4) : 0; i > 0; --i) {
        if (any(3) == 0) *out += "t&amp;";
        AppendRandomElement(random, depth + 1, scope, out);
    }
    *out += "</" + name + ">";
}

TEST(PrefixNormalizer, ChangesNoMeaningOfAnyDocument) {
    const std::vector<NamespaceDeclaration> queries[] = {
        {}, {{L"wprt", kPrint}, {L"p", L"urn:c"}}, {{L"pri", L"urn:a"}}};
    std::mt19937 random(7);
    for (int round = 0; round < 1000; ++round) {
        std::string document;
        AppendRandomElement(&random, 0, {}, &document);
        const std::string normalized = Normalize(document, queries[round % 3]);
        Meaning before;
        Meaning after;
        ASSERT_TRUE(Parse(document, &before)) << document;
        ASSERT_TRUE(Parse(normalized, &after)) << document << "\n" << normalized;
        ASSERT_EQ(Narrow(after.text), Narrow(before.text)) << document << "\n" << normalized;
    }
}

}  // namespace
}  // namespace vlm
