#include "bidi/schema_tree.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "bidi/engine_error.h"
#include "bidi/parameter_text.h"
#include "util/trace.h"

namespace vlm {

namespace {

bool IsProperty(const SchemaElement& element) {
    return element.kind == ElementKind::kProperty;
}

bool IsPlainProperty(const SchemaElement& element) {
    return IsProperty(element) && !element.HasBinding();
}

bool IsLeaf(const SchemaElement& element) {
    return element.IsLeaf();
}

bool Before(const SchemaElement* left, const SchemaElement* right) {
    return std::less<>()(left, right);
}

// Where instances come from below `level`, which has no Property of the wanted name.
void AppendParameterised(const SchemaElement& level, SchemaTree::Reached& next) {
    for (const SchemaElement& child : level.children) {
        if (child.IsTemplate()) {
            next.elements.push_back(&child);
            next.parameters.push_back(&child);
        } else if (child.kind == ElementKind::kProperty && child.HasBinding()) {
            next.elements.push_back(&child);
        }
    }
    if (level.HasBinding()) next.elements.push_back(&level);
}

void AppendBindings(const SchemaElement& element, std::vector<const SchemaElement*>& bindings) {
    for (const SchemaElement& child : element.children) {
        if (child.IsBinding()) bindings.push_back(&child);
    }
}

}  // namespace

void RefuseApostrophe(const std::wstring& text, const std::wstring& where) {
    if (text.find(L'\'') == std::wstring::npos) return;
    ThrowEngineError(E_FAIL, Printable(text) + L" holds an apostrophe and cannot be looked up" +
                                 (where.empty() ? L"" : L": ") + where);
}

bool SchemaElement::HasBinding() const {
    return std::any_of(children.begin(), children.end(),
                       [](const SchemaElement& child) { return child.IsBinding(); });
}

SchemaTree::SchemaTree(SchemaElement root) : root_(std::move(root)) {
    Index(root_);
    std::sort(byName_.begin(), byName_.end(), [](const Entry& left, const Entry& right) {
        if (left.parent != right.parent) return Before(left.parent, right.parent);
        const int order = left.child->name->compare(*right.child->name);
        // Siblings lie in one vector, so that their addresses are in document order.
        return order != 0 ? order < 0 : Before(left.child, right.child);
    });
}

void SchemaTree::Index(const SchemaElement& element) {
    if (element.kind == ElementKind::kSchema) schemas_.push_back(&element);
    if (element.kind == ElementKind::kParameter && element.parameter) parameters_.insert(*element.parameter);
    for (const SchemaElement& child : element.children) {
        if (child.name) byName_.push_back({&element, &child});
        if (child.name && child.name->find(L'$') != std::wstring::npos)
            withParameters_[&element].push_back(&child);
        Index(child);
    }
}

template <typename Accept>
SchemaTree::Elements SchemaTree::ChildrenNamed(const Elements& parents, std::wstring_view name,
                                               Accept accept) const {
    Elements found;
    for (const SchemaElement* parent : parents) {
        auto entry = std::lower_bound(byName_.begin(), byName_.end(), name,
                                      [parent](const Entry& candidate, std::wstring_view wanted) {
                                          if (candidate.parent != parent)
                                              return Before(candidate.parent, parent);
                                          return candidate.child->name->compare(wanted) < 0;
                                      });
        for (; entry != byName_.end() && entry->parent == parent && *entry->child->name == name; ++entry) {
            if (accept(*entry->child)) found.push_back(entry->child);
        }
    }
    return found;
}

// The children whose names parameters could make this one. Which parameters are bound there is not looked at:
// what is asked for needlessly costs the printer a little, what is not asked for has no value.
template <typename Accept>
void SchemaTree::AppendNameable(const SchemaElement& parent, std::wstring_view name, Accept accept,
                                Elements& found) const {
    const auto candidates = withParameters_.find(&parent);
    if (candidates == withParameters_.end()) return;
    for (const SchemaElement* child : candidates->second) {
        if (accept(*child) && CanBecome(*child->name, name, parameters_)) found.push_back(child);
    }
}

SchemaTree::Elements SchemaTree::PropertiesNamed(const Elements& parents, std::wstring_view name) const {
    return ChildrenNamed(parents, name, IsProperty);
}

SchemaTree::Elements SchemaTree::LeavesNamed(const Elements& parents, std::wstring_view name) const {
    return ChildrenNamed(parents, name, IsLeaf);
}

const SchemaElement* SchemaTree::Find(const SchemaPath& path) const {
    Elements level = schemas_;
    for (const std::wstring_view property : path.properties)
        level = PropertiesNamed(level, property);
    if (path.leaf) level = LeavesNamed(level, *path.leaf);
    return level.empty() ? nullptr : level.front();
}

std::optional<SchemaTree::Reached> SchemaTree::FindForQuery(const SchemaPath& path) const {
    Reached reached;
    reached.elements = schemas_;
    for (const std::wstring_view property : path.properties) {
        Reached next;
        next.parameters = std::move(reached.parameters);
        next.elements = PropertiesNamed(reached.elements, property);
        if (next.elements.empty()) {
            for (const SchemaElement* level : reached.elements) {
                AppendParameterised(*level, next);
                AppendNameable(*level, property, IsPlainProperty, next.elements);
            }
        }
        for (const SchemaElement* element : next.elements)
            AppendBindings(*element, next.parameters);
        reached = std::move(next);
    }
    if (path.leaf) {
        const Elements level = std::move(reached.elements);
        reached.elements = LeavesNamed(level, *path.leaf);
        if (reached.elements.empty()) {
            for (const SchemaElement* element : level)
                AppendNameable(*element, *path.leaf, IsLeaf, reached.elements);
        }
    }
    if (reached.elements.empty()) return std::nullopt;
    return reached;
}

}  // namespace vlm
