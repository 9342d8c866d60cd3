#include "bidi/answer_pass.h"

#include <utility>

#include "bidi/filters.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

// A List that finds everything would repeat the printer's answer many times over.
constexpr size_t kLongestList = 1u << 20;

std::optional<std::wstring> JoinTexts(IXMLDOMNodeList* nodes) {
    std::optional<std::wstring> joined;
    while (const ComPtr<IXMLDOMNode> node = NextNode(nodes)) {
        if (joined) {
            *joined += L',';
        } else {
            joined.emplace();
        }
        *joined += TextOf(node.Get());
        if (joined->size() > kLongestList) {
            Trace(L"Error: a List of an extension file joins more than %d characters\r\n",
                  static_cast<int>(kLongestList));
            return std::nullopt;
        }
    }
    return joined;
}

}  // namespace

std::optional<std::vector<NamedAnswer>> AnswerPass::Collect(const std::wstring& path) {
    RefuseApostrophe(path);
    const SchemaElement* element = tree_.Find(ParseSchemaPath(path));
    if (element == nullptr) return std::nullopt;
    std::vector<NamedAnswer> answers;
    if (element->IsLeaf()) {
        answers.push_back({path, &Answer(*element)});
    } else {
        CollectBelow(*element, path, answers);
    }
    return answers;
}

void AnswerPass::CollectBelow(const SchemaElement& element, const std::wstring& path,
                              std::vector<NamedAnswer>& answers) {
    // Below a Schema nothing separates: the path that leads to it, "\", already ends in what stands before a
    // name.
    const bool belowSchema = element.kind == ElementKind::kSchema;
    for (const SchemaElement& child : element.children) {
        const bool isProperty = child.kind == ElementKind::kProperty;
        if (!isProperty && !child.IsLeaf()) continue;
        std::wstring childPath = path;
        if (!belowSchema) childPath += isProperty ? L'.' : L':';
        childPath += child.name.value_or(L"");
        if (isProperty) {
            CollectBelow(child, childPath, answers);
        } else {
            answers.push_back({std::move(childPath), &Answer(child)});
        }
    }
}

const LeafAnswer& AnswerPass::Answer(const SchemaElement& leaf) {
    const auto known = known_.find(&leaf);
    if (known != known_.end()) return known->second;
    return known_.emplace(&leaf, Evaluate(leaf)).first->second;
}

LeafAnswer AnswerPass::Evaluate(const SchemaElement& leaf) const {
    const std::wstring type = leaf.type.value_or(L"BIDI_STRING");
    const std::wstring filter = leaf.filter.value_or(L"");
    switch (leaf.kind) {
        case ElementKind::kConst:
            return {type, leaf.text};
        case ElementKind::kInstalled:
            return {L"BIDI_BOOL", SelectFirst(wsd_, filter) ? L"true" : L"false"};
        case ElementKind::kList:
            return {L"BIDI_STRING", JoinTexts(SelectAll(wsd_, filter).Get())};
        default: {
            const ComPtr<IXMLDOMNode> node = SelectFirst(wsd_, filter);
            return {type, node ? std::optional(TextOf(node.Get())) : std::nullopt};
        }
    }
}

}  // namespace vlm
