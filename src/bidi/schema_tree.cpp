#include "bidi/schema_tree.h"

#include <algorithm>
#include <utility>

#include "bidi/engine_error.h"
#include "bidi/parameter_text.h"
#include "util/trace.h"

namespace vlm {

namespace {

// Where instances come from below `level`, which has no Property of the wanted name.
void AppendParameterised(const SchemaElement& level, SchemaTree::Reached& next) {
    for (const SchemaElement& child : level.children) {
        if (child.IsTemplate()) {
            next.elements.push_back(&child);
            next.parameters.push_back(&child);
        } else if (child.IsProperty() && child.HasBinding()) {
            next.elements.push_back(&child);
        }
    }
    if (level.HasBinding()) next.elements.push_back(&level);
}

}  // namespace

void RefuseApostrophe(const std::wstring& text, const std::wstring& where) {
    if (text.find(L'\'') == std::wstring::npos) return;
    ThrowEngineError(E_FAIL, Printable(text) + L" holds an apostrophe and cannot be looked up" +
                                 (where.empty() ? L"" : L": ") + where);
}

std::vector<const SchemaElement*> SchemaElement::Bindings() const {
    std::vector<const SchemaElement*> bindings;
    for (const SchemaElement& child : children) {
        if (child.IsBinding()) bindings.push_back(&child);
    }
    return bindings;
}

SchemaTree::SchemaTree(SchemaElement root) : root_(std::move(root)) {
    Index(root_);
}

void SchemaTree::Index(const SchemaElement& element) {
    if (element.kind == ElementKind::kSchema) schemas_.push_back(&element);
    if (element.kind == ElementKind::kParameter && element.parameter) parameters_.insert(*element.parameter);
    for (const SchemaElement& child : element.children) {
        if (child.name) byName_[&element].emplace(*child.name, &child);
        if (child.name && child.name->find(L'$') != std::wstring::npos)
            withParameters_[&element].push_back(&child);
        Index(child);
    }
}

SchemaTree::Elements SchemaTree::ChildrenNamed(const Elements& parents, std::wstring_view name,
                                               Accept accept) const {
    Elements found;
    for (const SchemaElement* parent : parents) {
        const auto children = byName_.find(parent);
        if (children == byName_.end()) continue;
        const auto [begin, end] = children->second.equal_range(name);
        for (auto child = begin; child != end; ++child) {
            if ((child->second->*accept)()) found.push_back(child->second);
        }
    }
    return found;
}

// The children whose names parameters could make this one, wherever those parameters are bound: an element
// asked for needlessly costs the printer a little, one that is not asked for has no value.
void SchemaTree::AppendNameable(const SchemaElement& parent, std::wstring_view name, Accept accept,
                                Elements& found) const {
    const auto candidates = withParameters_.find(&parent);
    if (candidates == withParameters_.end()) return;
    for (const SchemaElement* child : candidates->second) {
        if (child->name && (child->*accept)() && CanBecome(*child->name, name, parameters_))
            found.push_back(child);
    }
}

const SchemaElement* SchemaTree::Find(const SchemaPath& path) const {
    Elements level = schemas_;
    for (const std::wstring_view property : path.properties)
        level = ChildrenNamed(level, property, &SchemaElement::IsProperty);
    if (path.leaf) level = ChildrenNamed(level, *path.leaf, &SchemaElement::IsLeaf);
    return level.empty() ? nullptr : level.front();
}

std::optional<SchemaTree::Reached> SchemaTree::FindForQuery(const SchemaPath& path) const {
    Reached reached;
    reached.elements = schemas_;
    for (const std::wstring_view property : path.properties) {
        Reached next;
        next.parameters = std::move(reached.parameters);
        next.elements = ChildrenNamed(reached.elements, property, &SchemaElement::IsProperty);
        if (next.elements.empty()) {
            for (const SchemaElement* level : reached.elements) {
                AppendParameterised(*level, next);
                AppendNameable(*level, property, &SchemaElement::IsPropertyWithoutBinding, next.elements);
            }
        }
        for (const SchemaElement* element : next.elements) {
            const std::vector<const SchemaElement*> bindings = element->Bindings();
            next.parameters.insert(next.parameters.end(), bindings.begin(), bindings.end());
        }
        reached = std::move(next);
    }
    if (path.leaf) {
        const Elements level = std::move(reached.elements);
        reached.elements = ChildrenNamed(level, *path.leaf, &SchemaElement::IsLeaf);
        if (reached.elements.empty()) {
            for (const SchemaElement* element : level)
                AppendNameable(*element, *path.leaf, &SchemaElement::IsLeaf, reached.elements);
        }
    }
    if (reached.elements.empty()) return std::nullopt;
    return reached;
}

}  // namespace vlm
