// Any document, written with other prefixes: a parser that is not ours reads the same names and texts, each
// namespace has one prefix, and the root declares it. After the first byte, which chooses the query's
// prefixes, comes the document itself or what a random one is made of.
#include <map>

#include "fuzz_input.h"
#include "tests/soap/expat_events.h"
#include "tests/soap/random_document.h"
#include "util/namespaces.h"

namespace {

using vlm::NamespaceDeclaration;

const std::vector<NamespaceDeclaration> kQueries[] = {{},
                                                      {{L"wprt", vlm::ns::kWsdPrint}, {L"p", L"urn:c"}},
                                                      {{L"pri", L"urn:a"}},
                                                      {{L"ns1", L"urn:b"}, {L"q", vlm::ns::kWsdPrint}}};

constexpr int kShallow = 2;  // how deep a random document begins: its size is time

// Which prefixes a document declares and uses, and how much it could grow.
class Prefixes : public vlm::Meaning {
 public:
    void Declare(std::wstring_view prefix, std::wstring_view uri) override {
        if (elements == 0) root[std::wstring(prefix)] = uri;
        if (elements > 0 && !prefix.empty()) declaresNested = true;
        longestPrefix = std::max(longestPrefix, prefix.size());
        longestUri = std::max(longestUri, uri.size());
        Meaning::Declare(prefix, uri);
    }
    void Use(std::wstring_view uri, std::wstring_view prefix) override {
        const auto [entry, isNew] = used.try_emplace(std::wstring(uri), prefix);
        if (entry->second.empty()) entry->second = prefix;
        if (!isNew && !prefix.empty() && entry->second != prefix) hasTwo = true;
    }
    void Start(const vlm::XmlName& name, const vlm::XmlAttributes& all) override {
        ++elements;
        attributes += all.size();
        Meaning::Start(name, all);
    }

    std::map<std::wstring, std::wstring> root;  // what it declares
    std::map<std::wstring, std::wstring> used;  // namespace to prefix
    bool hasTwo = false;                        // a namespace has two prefixes
    bool declaresNested = false;
    size_t elements = 0;
    size_t attributes = 0;
    size_t longestPrefix = 4;  // "wprt", "ns63"
    size_t longestUri = std::size(vlm::ns::kWsdPrint);
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vlm::vpca::FuzzInput input(data, size);
    const uint8_t mode = input.TakeU8();
    const std::vector<NamespaceDeclaration>& wanted = kQueries[mode % 4];
    std::string document;
    if ((mode & 4) == 0) {
        const std::vector<uint8_t> rest = input.TakeRest();
        document.assign(rest.begin(), rest.end());
    } else {
        vlm::AppendRandomElement([&](size_t count) { return input.TakeU8() % count; }, kShallow, {},
                                 &document);
    }
    vlm::Feed feed(wanted);
    Prefixes before;
    if (!vlm::ParseNamespaces(document, &feed) || feed.refused) return 0;
    FUZZ_CHECK(vlm::ParseNamespaces(document, &before));

    const std::wstring normalized = feed.normalizer.Finish();
    Prefixes after;
    FUZZ_CHECK(vlm::ParseNamespaces(vlm::Narrow(normalized), &after));
    FUZZ_CHECK(before.IsKeptBy(after));
    FUZZ_CHECK(!after.declaresNested && !after.hasTwo);
    for (const NamespaceDeclaration& entry : wanted) {
        const auto onRoot = before.root.find(entry.prefix);
        if (onRoot != before.root.end() && onRoot->second != entry.uri) continue;
        const auto found = after.used.find(entry.uri);
        FUZZ_CHECK(found == after.used.end() || found->second == entry.prefix);
    }
    constexpr size_t kEscaped = 6;  // a quote becomes "&quot;"
    const size_t perAttribute = before.longestPrefix + 2;
    const size_t perElement = 2 * before.longestPrefix + kEscaped * before.longestUri + 16;
    FUZZ_CHECK(normalized.size() <= kEscaped * document.size() + perAttribute * before.attributes +
                                        perElement * (before.elements + 1));
    return 0;
}
