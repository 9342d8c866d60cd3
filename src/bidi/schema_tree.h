// The Bidi schema as the extension files declare it: a tree of plain values, made once from the files' DOM so
// that paths are found by look-up instead of by one XPath search of the document each.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bidi/schema_path.h"
#include "util/vlxml.h"

namespace vlm {

enum class ElementKind {
    kOther,
    kSchema,
    kProperty,
    kParameter,
    kValue,
    kInstalled,
    kList,
    kConst,
};

struct SchemaElement;

// What one Parameter gave to one instance.
struct BoundParameter {
    const SchemaElement* parameter;              // as declared
    std::shared_ptr<const std::wstring> filter;  // with the values of the parameters around it
    size_t node;                                 // the number of the node that the value is of, from 0
    std::wstring value;
};

struct SchemaElement {
    ElementKind kind = ElementKind::kOther;
    std::wstring tag;  // the qualified name
    std::optional<std::wstring> name;
    std::optional<std::wstring> type;
    std::optional<std::wstring> filter;
    std::optional<std::wstring> query;
    std::optional<std::wstring> parameter;
    std::shared_ptr<const std::wstring> file;      // the path of the file that declares it; null for none
    size_t number = 0;                             // in that file, in document order; the root is 0
    std::wstring text;                             // of a Const
    std::vector<NamespaceDeclaration> namespaces;  // of a Schema
    std::vector<SchemaElement> children;           // in document order
    // In a tree whose parameters are expanded: what the element was made of, and of an instance by which
    // values, those of outer instances not among them.
    const SchemaElement* declared = nullptr;
    std::vector<BoundParameter> bound;

    bool IsProperty() const { return kind == ElementKind::kProperty; }
    bool IsLeaf() const { return kind >= ElementKind::kValue; }
    // A Parameter makes instances from printer data. Two ways of writing it exist: either it carries the
    // template itself, with the instances' name, which holds $...$, and their children; or it is empty, and
    // the Property around it is the template.
    bool IsTemplate() const {
        return kind == ElementKind::kParameter && !children.empty() && name &&
               name->find(L'$') != std::wstring::npos;
    }
    bool IsBinding() const { return kind == ElementKind::kParameter && !IsTemplate(); }
    std::vector<const SchemaElement*> Bindings() const;  // among its children
    bool HasBinding() const { return !Bindings().empty(); }
    bool IsPropertyWithoutBinding() const { return IsProperty() && !HasBinding(); }
};

// Names and paths are looked up as XPath literals between apostrophes, and one that holds an apostrophe is no
// such literal: throws CComErrorEx(E_FAIL). The reason names the text, or where it stands.
void RefuseApostrophe(const std::wstring& text, const std::wstring& where = {});

class SchemaTree {
 public:
    // The elements that a path leads to before parameters are expanded.
    struct Reached {
        std::vector<const SchemaElement*> elements;
        std::vector<const SchemaElement*> parameters;  // passed on the way
    };

    explicit SchemaTree(SchemaElement root);
    // The index points into the tree.
    SchemaTree(const SchemaTree&) = delete;
    SchemaTree& operator=(const SchemaTree&) = delete;

    const SchemaElement& Root() const { return root_; }
    // All Schema elements, in document order.
    const std::vector<const SchemaElement*>& Schemas() const { return schemas_; }

    // The first element in document order that the path names, or null.
    const SchemaElement* Find(const SchemaPath& path) const;
    // The same for all matches. A name that no element has is accepted where parameters could make it of one
    // with "$", and where a Parameter would make instances; the search then goes on in the template.
    // Nothing when the path leads nowhere.
    std::optional<Reached> FindForQuery(const SchemaPath& path) const;

 private:
    using Elements = std::vector<const SchemaElement*>;
    using Accept = bool (SchemaElement::*)() const;

    void Index(const SchemaElement& element);
    Elements ChildrenNamed(const Elements& parents, std::wstring_view name, Accept accept) const;
    void AppendNameable(const SchemaElement& parent, std::wstring_view name, Accept accept,
                        Elements& found) const;

    SchemaElement root_;
    Elements schemas_;
    // The children of an element by their names; those of one name in document order.
    std::unordered_map<const SchemaElement*, std::multimap<std::wstring_view, const SchemaElement*>> byName_;
    std::unordered_map<const SchemaElement*, Elements> withParameters_;  // children with "$" in their names
    std::set<std::wstring_view> parameters_;                             // that anything in the tree binds
};

}  // namespace vlm
