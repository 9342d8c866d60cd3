#include "soap/prefix_normalizer.h"

#include <algorithm>
#include <utility>

#include "util/namespaces.h"
#include "util/xml_names.h"
#include "util/xml_text.h"

namespace vlm {

namespace {

constexpr std::wstring_view kPrintServicePrefix = L"pri";

// What is escaped of content and attribute values from a parser, so that a parser reads the same again: white
// space that a parser would normalise away is written as a reference, what need not be one stays readable.
constexpr std::wstring_view kInContent = L"&<>\r";
constexpr std::wstring_view kInAttribute = L"&<\"\t\n\r";

void AppendDeclaration(std::wstring* out, std::wstring_view prefix, std::wstring_view uri) {
    *out += prefix.empty() ? L" xmlns" : L" xmlns:";
    *out += prefix;
    *out += L"=\"";
    AppendEscaped(out, uri, kInAttribute);
    *out += L'"';
}

void AppendName(std::wstring* out, std::wstring_view prefix, std::wstring_view local) {
    if (!prefix.empty()) {
        *out += prefix;
        *out += L':';
    }
    *out += local;
}

// The first prefix for `uri`; empty when there is none, or only a default declaration.
std::wstring_view PrefixOf(std::wstring_view uri, const std::vector<NamespaceDeclaration>& declarations) {
    for (const NamespaceDeclaration& entry : declarations) {
        if (entry.uri == uri && !entry.prefix.empty()) return entry.prefix;
    }
    return {};
}

}  // namespace

bool PrefixNormalizer::Declare(std::wstring_view prefix, std::wstring_view uri) {
    scope_.push_back({std::wstring(prefix), std::wstring(uri)});
    return rootSeen_ || scope_.size() <= kMostNamespaces;
}

void PrefixNormalizer::EndDeclaration() {
    if (!scope_.empty()) scope_.pop_back();
}

bool PrefixNormalizer::StartElement(const XmlName& name, const XmlAttributes& attributes) {
    const bool isRoot = !rootSeen_;
    if (isRoot) SettleRoot();
    CloseTag();
    ReleaseSpace();

    const bool noNamespace = name.uri.empty();
    const std::wstring prefix = noNamespace ? L"" : namespaces_[FindOrAdd(name.uri)].elementPrefix;
    std::wstring qualified;
    AppendName(&qualified, prefix, name.local);

    bool noDefault = open_.empty() ? false : open_.back().noDefault;
    std::wstring* tag = &content_;
    if (isRoot) {
        rootName_ = qualified;
        tag = &rootAttributes_;
    } else {
        content_ += L'<';
        content_ += qualified;
        tagOpen_ = true;
        // Only the root's default declaration is kept, so an unprefixed name must not fall under it by
        // accident.
        if (prefix.empty() && !rootDefault_.empty() && noDefault != noNamespace) {
            AppendDeclaration(&content_, L"", name.uri);
            noDefault = noNamespace;
        }
    }
    open_.push_back({std::move(qualified), noDefault});
    const bool isElementData = name.uri == ns::kWsdPrint && name.local == L"ElementData";
    for (const XmlAttribute& attribute : attributes) {
        AppendAttribute(tag, attribute, isElementData && attribute.name.local == L"Name");
    }
    return namespaces_.size() <= kMostNamespaces;
}

void PrefixNormalizer::EndElement() {
    if (open_.empty()) return;
    const std::wstring name = std::move(open_.back().name);
    open_.pop_back();
    heldSpace_.clear();
    if (open_.empty()) return;  // Finish() writes the root's tags
    content_ += tagOpen_ ? L"/>" : L"</" + name + L">";
    tagOpen_ = false;
}

void PrefixNormalizer::Text(std::wstring_view text) {
    // Text after a start tag loses its leading white space, text before an end tag its trailing white
    // space.
    if (tagOpen_) {
        const size_t begin = text.find_first_not_of(kXmlSpace);
        text.remove_prefix(std::min(begin, text.size()));
    }
    if (text.empty()) return;
    CloseTag();
    const size_t end = text.find_last_not_of(kXmlSpace) + 1;
    if (end > 0) {
        ReleaseSpace();
        AppendEscaped(&content_, text.substr(0, end), kInContent);
    }
    heldSpace_ += text.substr(end);
}

void PrefixNormalizer::ReleaseSpace() {
    AppendEscaped(&content_, std::exchange(heldSpace_, {}), kInContent);
}

std::wstring PrefixNormalizer::Finish() const {
    std::wstring document = L"<" + rootName_;
    for (const NamespaceDeclaration& entry : root_)
        AppendDeclaration(&document, entry.prefix, entry.uri);
    document += rootAttributes_;
    document += L'>';
    document += content_;
    document += L"</" + rootName_ + L">";
    return document;
}

// Once all of the root's declarations are known, each of its namespaces gets its prefix.
void PrefixNormalizer::SettleRoot() {
    rootSeen_ = true;
    root_ = scope_;
    if (const auto* const found = FindPrefix(scope_, L"")) rootDefault_ = found->uri;
    for (const NamespaceDeclaration& entry : scope_) {
        if (!entry.uri.empty()) FindOrAdd(entry.uri);
    }
}

size_t PrefixNormalizer::FindOrAdd(std::wstring_view uri) {
    const auto same = [&](const Namespace& entry) { return entry.uri == uri; };
    const auto found = std::find_if(namespaces_.begin(), namespaces_.end(), same);
    if (found != namespaces_.end()) return static_cast<size_t>(found - namespaces_.begin());

    Namespace entry{std::wstring(uri), {}, {}};
    const std::wstring_view wanted = Wanted(uri);
    const std::wstring_view ownPrefix = PrefixOf(uri, scope_);
    if (uri == ns::kXml) {
        entry.elementPrefix = entry.attributePrefix = L"xml";
    } else if (!wanted.empty() || !ownPrefix.empty() || uri != rootDefault_) {
        entry.elementPrefix = entry.attributePrefix = Claim(wanted.empty() ? ownPrefix : wanted, uri);
    }
    namespaces_.push_back(std::move(entry));
    return namespaces_.size() - 1;
}

// Attributes do not follow a default declaration, so they need a prefix even where elements have none.
const std::wstring& PrefixNormalizer::AttributePrefix(size_t index) {
    Namespace& entry = namespaces_[index];
    if (entry.attributePrefix.empty()) entry.attributePrefix = Claim(L"", entry.uri);
    return entry.attributePrefix;
}

// Makes the root bind a prefix to `uri`, `prefix` if that is free, and returns it.
std::wstring PrefixNormalizer::Claim(std::wstring_view prefix, std::wstring_view uri) {
    std::wstring claimed(prefix);
    for (unsigned number = 1; claimed.empty() || IsTaken(claimed, uri); ++number) {
        claimed = L"ns" + std::to_wstring(number);
    }
    if (FindPrefix(root_, claimed) == nullptr) root_.push_back({claimed, std::wstring(uri)});
    return claimed;
}

std::wstring_view PrefixNormalizer::Wanted(std::wstring_view uri) const {
    const std::wstring_view wanted = PrefixOf(uri, wanted_);
    return wanted.empty() && uri == ns::kWsdPrint ? kPrintServicePrefix : wanted;
}

bool PrefixNormalizer::IsTaken(std::wstring_view prefix, std::wstring_view uri) const {
    // The root's bindings are settled, and the engine relies on the query's.
    for (const std::vector<NamespaceDeclaration>* bindings : {&std::as_const(root_), &wanted_}) {
        const NamespaceDeclaration* const bound = FindPrefix(*bindings, prefix);
        if (bound != nullptr) return bound->uri != uri;
    }
    if (prefix == kPrintServicePrefix) return uri != ns::kWsdPrint && Wanted(ns::kWsdPrint) == prefix;
    return prefix == L"xml" || prefix == L"xmlns";
}

void PrefixNormalizer::AppendAttribute(std::wstring* out, const XmlAttribute& attribute, bool holdsName) {
    *out += L' ';
    const XmlName& name = attribute.name;
    AppendName(out, name.uri.empty() ? L"" : AttributePrefix(FindOrAdd(name.uri)), name.local);
    *out += L"=\"";
    const std::wstring_view value = TrimXmlSpace(attribute.value);
    AppendEscaped(out, holdsName ? MapName(value) : value, kInAttribute);
    *out += L'"';
}

// A qualified name with the prefix that its namespace has here; one without a prefix is of the default
// namespace. A name in none, or whose prefix the document does not declare, stays as it is.
std::wstring PrefixNormalizer::MapName(std::wstring_view value) {
    const size_t colon = value.find(L':');
    const std::wstring_view prefix = colon == std::wstring_view::npos ? L"" : value.substr(0, colon);
    const std::wstring_view local = value.substr(colon + 1);  // all of it without a colon: npos + 1 is 0
    const auto same = [&](const NamespaceDeclaration& entry) { return entry.prefix == prefix; };
    const auto found = std::find_if(scope_.rbegin(), scope_.rend(), same);
    if (found == scope_.rend() || found->uri.empty()) return std::wstring(value);
    std::wstring mapped = AttributePrefix(FindOrAdd(found->uri)) + L":";
    mapped += local;
    return mapped;
}

void PrefixNormalizer::CloseTag() {
    if (tagOpen_) content_ += L'>';
    tagOpen_ = false;
}

}  // namespace vlm
