// Rewrites a document so that each namespace has one prefix, declared on the root. Plain standard C++.
//
// The Bidi engine addresses a printer's answer with the prefixes of the vendor's extension files, and it sees
// only what the root element declares. Printers choose prefixes as they like and declare them where they
// like. So a document passes through here event by event and comes out as text in which
//   - an element or attribute of a namespace carries the prefix that the engine's query declares for it; the
//     print service's namespace carries "pri" where the query declares none; any other the document's own
//     first prefix;
//   - the root's declarations stand as the document had them, followed by those of nested declarations that
//     something uses;
//   - a prefix that is taken (the root or `wanted` binds it to another namespace) gives way to a fresh
//     "ns1", "ns2", … Namespaces are told apart by their URI alone. Names without a namespace stay without,
//     "xml:" stays, and the qualified name in the Name attribute of a print service ElementData follows its
//     namespace like a tag does;
//   - the values of attributes and the texts of elements have no white space at their ends: printers add it
//     for layout, and a filter's comparison would fail on it.
//
// The caller passes the events of a namespace-aware parser in their order. One object serves one document.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "soap/printer_elements_request.h"
#include "util/xml_event.h"

namespace vlm {

class PrefixNormalizer {
 public:
    // A real answer has five to ten.
    static constexpr size_t kMostNamespaces = 64;

    // In characters. Prefixes in place of default declarations make a document longer.
    static constexpr size_t kLongestDocument = 4u << 20;

    // `wanted` are the query's declarations. It must outlive this object.
    explicit PrefixNormalizer(const std::vector<NamespaceDeclaration>& wanted) : wanted_(wanted) {}

    bool TooLong() const { return content_.size() + rootAttributes_.size() > kLongestDocument; }

    // A declaration in force from the next element's start to EndDeclaration; the default one has an empty
    // prefix. False when the root has too many.
    bool Declare(std::wstring_view prefix, std::wstring_view uri);
    void EndDeclaration();
    // `attributes` without the declarations. False when the document uses too many namespaces.
    bool StartElement(const XmlName& name, const XmlAttributes& attributes);
    void EndElement();
    void Text(std::wstring_view text);

    // The document, without an XML declaration.
    std::wstring Finish() const;

 private:
    struct Namespace {
        std::wstring uri;
        std::wstring elementPrefix;    // empty where the root's default declaration serves
        std::wstring attributePrefix;  // never empty once an attribute has used it
    };
    struct OpenElement {
        std::wstring name;
        bool noDefault;  // xmlns="" is in force
    };

    void SettleRoot();
    size_t FindOrAdd(std::wstring_view uri);
    const std::wstring& AttributePrefix(size_t index);
    std::wstring Claim(std::wstring_view prefix, std::wstring_view uri);
    std::wstring_view Wanted(std::wstring_view uri) const;
    bool IsTaken(std::wstring_view prefix, std::wstring_view uri) const;
    void AppendAttribute(std::wstring* out, const XmlAttribute& attribute, bool holdsName);
    std::wstring MapName(std::wstring_view value);
    void CloseTag();
    void ReleaseSpace();

    const std::vector<NamespaceDeclaration>& wanted_;
    std::vector<Namespace> namespaces_;
    std::vector<NamespaceDeclaration> scope_;  // the document's declarations in force, innermost last
    std::vector<NamespaceDeclaration> root_;   // the root's own declarations, then the added ones
    std::wstring rootDefault_;                 // the root's default namespace
    bool rootSeen_ = false;

    std::wstring rootName_;
    std::wstring rootAttributes_;
    std::wstring content_;  // everything between the root's tags
    std::vector<OpenElement> open_;
    bool tagOpen_ = false;    // content_ ends in a start tag that still lacks its '>'
    std::wstring heldSpace_;  // white space behind text, until it is known what follows
};

}  // namespace vlm
