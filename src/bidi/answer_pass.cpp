#include "bidi/answer_pass.h"

#include <utility>

#include "bidi/filters.h"

namespace vlm {

std::optional<std::vector<NamedAnswer>> AnswerPass::Collect(const std::wstring& path) {
    RefuseApostrophe(path);
    const SchemaElement* element = tree_.Find(ParseSchemaPath(path));
    if (element == nullptr) return std::nullopt;
    std::vector<NamedAnswer> answers;
    std::wstring reached = path;
    if (element->IsLeaf()) {
        Append(*element, reached, answers);
    } else {
        CollectBelow(*element, reached, answers);
    }
    return answers;
}

void AnswerPass::CollectBelow(const SchemaElement& element, std::wstring& path,
                              std::vector<NamedAnswer>& answers) {
    // Below a Schema nothing separates: the path that leads to it, "\", already ends in what stands before a
    // name.
    const bool belowSchema = element.kind == ElementKind::kSchema;
    const size_t length = path.size();
    for (const SchemaElement& child : element.children) {
        if (!child.IsProperty() && !child.IsLeaf()) continue;
        if (!belowSchema) path += child.IsProperty() ? L'.' : L':';
        path += child.name.value_or(L"");
        if (child.IsProperty()) {
            CollectBelow(child, path, answers);
        } else {
            Append(child, path, answers);
        }
        path.resize(length);
    }
}

void AnswerPass::Append(const SchemaElement& leaf, const std::wstring& path,
                        std::vector<NamedAnswer>& answers) {
    auto known = known_.find(&leaf);
    if (known == known_.end()) known = known_.emplace(&leaf, Evaluate(leaf)).first;
    const LeafAnswer& answer = known->second;
    QueryBudget& budget = answer_.Budget();
    budget.Spend(Expense::kEntries, 1, leaf);
    budget.Spend(Expense::kAnswerText, path.size() + (answer.text ? answer.text->size() : 0), leaf);
    answers.push_back({path, &answer, &leaf});
}

LeafAnswer AnswerPass::Evaluate(const SchemaElement& leaf) const {
    const std::wstring type = leaf.type.value_or(L"BIDI_STRING");
    const std::wstring filter = leaf.filter.value_or(L"");
    switch (leaf.kind) {
        case ElementKind::kConst:
            return {type, leaf.text};
        case ElementKind::kInstalled:
            return {L"BIDI_BOOL", answer_.First(filter, leaf) ? L"true" : L"false"};
        case ElementKind::kList:
            return {L"BIDI_STRING", JoinTexts(leaf)};
        default: {
            const ComPtr<IXMLDOMNode> node = answer_.First(filter, leaf);
            return {type, node ? std::optional(TextOf(node.Get())) : std::nullopt};
        }
    }
}

std::optional<std::wstring> AnswerPass::JoinTexts(const SchemaElement& list) const {
    const ComPtr<IXMLDOMNodeList> nodes = answer_.All(list.filter.value_or(L""), list);
    std::optional<std::wstring> joined;
    while (const ComPtr<IXMLDOMNode> node = NextNode(nodes.Get())) {
        if (joined) {
            *joined += L',';
        } else {
            joined.emplace();
        }
        const std::wstring text = TextOf(node.Get());
        // One that finds everything would repeat the printer's answer many times over.
        answer_.Budget().CheckTime(list);
        answer_.Budget().Spend(Expense::kAnswerText, text.size() + 1, list);
        *joined += text;
    }
    return joined;
}

}  // namespace vlm
