#include "bidi/parameters.h"

#include <span>
#include <utility>

#include "bidi/engine_error.h"
#include "bidi/parameter_text.h"
#include "util/trace.h"

namespace vlm {

namespace {

class Expander {
    static constexpr int kMostNested = 100;

 public:
    explicit Expander(const AnswerSearch& answer) : answer_(answer) {}

    // No path leads to what stands beside a Schema, so it need not make sense.
    SchemaElement ExpandSchemas(const SchemaElement& source) {
        if (source.kind == ElementKind::kSchema) return Expand(source);
        SchemaElement target = CopyWithoutChildren(source);
        for (const SchemaElement& child : source.children)
            target.children.push_back(ExpandSchemas(child));
        return target;
    }

 private:
    SchemaElement Expand(const SchemaElement& source) {
        SchemaElement target = CopyWithoutChildren(source);
        if (source.filter) target.filter = FilterOf(source);
        if (source.name) target.name = Pay(ReplaceBoundInName(*source.name, parameters_), source);
        ExpandChildren(source, target);
        return target;
    }

    void ExpandChildren(const SchemaElement& source, SchemaElement& target) {
        for (const SchemaElement& child : source.children) {
            std::vector<const SchemaElement*> bindings;
            if (child.IsProperty()) bindings = child.Bindings();
            if (child.IsTemplate()) bindings = {&child};
            if (!bindings.empty()) {
                std::vector<BoundParameter> bound;
                Instantiate(bindings, child, target, bound);
            } else if (!child.IsBinding()) {
                target.children.push_back(Expand(child));
            }
        }
    }

    // One Property below `target` for each way of binding the Parameters to nodes of the answer. It calls
    // itself for each Parameter within another; their number is bounded, as the stack is. `bound` holds the
    // parameters before these.
    void Instantiate(std::span<const SchemaElement* const> bindings, const SchemaElement& source,
                     SchemaElement& target, std::vector<BoundParameter>& bound) {
        if (bindings.empty()) {
            SchemaElement instance = CopyWithoutChildren(source);
            instance.kind = ElementKind::kProperty;
            instance.tag = L"Property";
            instance.bound = bound;
            instance.name = Replace(ReplaceInName, source.name, source);
            ExpandChildren(source, instance);
            target.children.push_back(std::move(instance));
            return;
        }
        const SchemaElement& binding = *bindings.front();
        if (nesting_ >= kMostNested) {
            ThrowEngineError(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA),
                             L"more than " + std::to_wstring(kMostNested) +
                                 L" Parameters within each other: " + DescribeElement(binding));
        }
        ++nesting_;
        const std::wstring name = binding.parameter.value_or(L"");
        const auto filter = std::make_shared<const std::wstring>(FilterOf(binding));
        const ComPtr<IXMLDOMNodeList> nodes = answer_.All(*filter, binding);
        auto outer = parameters_.extract(name);  // one of the same name, hidden until the end
        size_t number = 0;
        while (const ComPtr<IXMLDOMNode> node = NextNode(nodes.Get())) {
            std::wstring value = TextOf(node.Get());
            Budget().CheckTime(binding);
            Budget().Spend(Expense::kBoundText, value.size(), binding);
            bound.push_back({&binding, filter, number++, value});
            parameters_[name] = std::move(value);
            Instantiate(bindings.subspan(1), source, target, bound);
            bound.pop_back();
        }
        parameters_.erase(name);
        parameters_.insert(std::move(outer));
        --nesting_;
    }

    SchemaElement CopyWithoutChildren(const SchemaElement& source) {
        Budget().Spend(Expense::kInstances, 1, source);
        SchemaElement copy;
        copy.kind = source.kind;
        copy.tag = source.tag;
        copy.name = source.name;
        copy.type = source.type;
        copy.file = source.file;
        copy.number = source.number;
        copy.declared = &source;
        copy.text = source.text;
        return copy;
    }

    std::wstring FilterOf(const SchemaElement& source) {
        return Replace(ReplaceInFilter, source.filter, source);
    }
    std::wstring Replace(Replacement (*replace)(std::wstring_view, const Parameters&),
                         const std::optional<std::wstring>& attribute, const SchemaElement& source) {
        const std::wstring text = attribute.value_or(L"");
        Replacement replaced = replace(text, parameters_);
        if (replaced.problem == ReplaceProblem::kNone) return Pay(std::move(replaced.text), source);
        const std::wstring parameter =
            L"Parameter " + Printable(replaced.parameter) + L" in " + Printable(text);
        const std::wstring where = L": " + DescribeElement(source);
        if (replaced.problem == ReplaceProblem::kUndefined)
            ThrowTracedError(parameter + L" is undefined", parameter + L" is undefined" + where);
        const std::wstring value = Printable(parameters_.find(replaced.parameter)->second, 64);
        ThrowEngineError(E_FAIL, parameter + L" stands outside quotes, and its value \"" + value +
                                     L"\" is neither a number nor a name" + where);
    }
    // A text outside of all Parameters is as large as in the file, which is paid for.
    std::wstring Pay(std::wstring text, const SchemaElement& source) {
        if (!parameters_.empty()) Budget().Spend(Expense::kBoundText, text.size(), source);
        return text;
    }
    QueryBudget& Budget() const { return answer_.Budget(); }

    const AnswerSearch& answer_;
    Parameters parameters_;
    int nesting_ = 0;
};

}  // namespace

SchemaElement ExpandParameters(const SchemaElement& root, const AnswerSearch& answer) {
    return Expander(answer).ExpandSchemas(root);
}

}  // namespace vlm
