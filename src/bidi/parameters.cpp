#include "bidi/parameters.h"

#include <span>
#include <utility>

#include "bidi/engine_error.h"
#include "bidi/extension_files.h"
#include "bidi/filters.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

const std::wstring& Lookup(const std::wstring& name, const std::wstring& text, const Parameters& parameters) {
    const auto found = parameters.find(name);
    if (found == parameters.end()) {
        Trace(L"Error: Parameter %ls in %ls is undefined\r\n", Printable(name).c_str(),
              Printable(text).c_str());
        ThrowEngineError(E_FAIL);
    }
    return found->second;
}

// Calls `literal` and `parameter` with the pieces of the text in turn.
template <typename Literal, typename Parameter>
void ForEachPiece(const std::wstring& text, Literal literal, Parameter parameter) {
    bool isParameter = false;
    for (size_t begin = 0;;) {
        const size_t end = text.find(L'$', begin);
        const std::wstring piece = text.substr(begin, end == std::wstring::npos ? end : end - begin);
        if (isParameter) {
            parameter(piece);
        } else {
            literal(piece);
        }
        if (end == std::wstring::npos) return;
        // A "$" that ends the text opens no parameter.
        if (end + 1 == text.size()) return;
        begin = end + 1;
        isParameter = !isParameter;
    }
}

// XPath knows no escape inside a literal: a text with both kinds of quotes has to be put together.
std::wstring Literal(const std::wstring& text, wchar_t quote) {
    const wchar_t other = quote == L'\'' ? L'"' : L'\'';
    if (text.find(quote) == std::wstring::npos) return quote + text + quote;
    if (text.find(other) == std::wstring::npos) return other + text + other;
    std::wstring joined = L"concat(";
    for (size_t begin = 0;;) {
        const size_t end = text.find(quote, begin);
        joined += quote + text.substr(begin, end == std::wstring::npos ? end : end - begin) + quote;
        if (end == std::wstring::npos) break;
        joined += std::wstring(L",") + other + quote + other + L',';
        begin = end + 1;
    }
    return joined + L')';
}

class Expander {
 public:
    explicit Expander(const CXMLDoc& answer) : answer_(answer) {}

    SchemaElement Expand(const SchemaElement& source) {
        SchemaElement target = CopyWithoutChildren(source);
        if (source.filter) target.filter = ReplaceInFilter(*source.filter, parameters_);
        if (source.name && !parameters_.empty()) target.name = ReplaceInName(*source.name, parameters_);
        ExpandChildren(source, target);
        return target;
    }

 private:
    void ExpandChildren(const SchemaElement& source, SchemaElement& target) {
        for (const SchemaElement& child : source.children) {
            if (child.IsTemplate()) {
                const SchemaElement* const binding[] = {&child};
                Instantiate(binding, child, target);
            } else if (child.kind == ElementKind::kProperty && child.HasBinding()) {
                std::vector<const SchemaElement*> bindings;
                for (const SchemaElement& candidate : child.children) {
                    if (candidate.IsBinding()) bindings.push_back(&candidate);
                }
                Instantiate(bindings, child, target);
            } else if (!child.IsBinding()) {
                target.children.push_back(Expand(child));
            }
        }
    }

    // One Property below `target` for each way of binding the Parameters to nodes of the answer.
    void Instantiate(std::span<const SchemaElement* const> bindings, const SchemaElement& source,
                     SchemaElement& target) {
        if (bindings.empty()) {
            SchemaElement instance;
            Count();
            instance.kind = ElementKind::kProperty;
            instance.tag = L"Property";
            instance.name = ReplaceInName(source.name.value_or(L""), parameters_);
            ExpandChildren(source, instance);
            target.children.push_back(std::move(instance));
            return;
        }
        const SchemaElement& binding = *bindings.front();
        const std::wstring name = binding.parameter.value_or(L"");
        const ComPtr<IXMLDOMNodeList> nodes =
            SelectAll(answer_, ReplaceInFilter(binding.filter.value_or(L""), parameters_));
        const auto outer = parameters_.find(name);
        const std::optional<std::wstring> shadowed =
            outer != parameters_.end() ? std::optional(outer->second) : std::nullopt;
        while (const ComPtr<IXMLDOMNode> node = NextNode(nodes.Get())) {
            parameters_[name] = TextOf(node.Get());
            Instantiate(bindings.subspan(1), source, target);
        }
        if (shadowed) {
            parameters_[name] = *shadowed;
        } else {
            parameters_.erase(name);
        }
    }

    SchemaElement CopyWithoutChildren(const SchemaElement& source) {
        Count();
        SchemaElement copy;
        copy.kind = source.kind;
        copy.tag = source.tag;
        copy.name = source.name;
        copy.type = source.type;
        copy.text = source.text;
        return copy;
    }

    void Count() {
        if (++elements_ <= kMostSchemaElements) return;
        Trace(L"Error: the parameters expand to more than %d elements\r\n",
              static_cast<int>(kMostSchemaElements));
        ThrowEngineError(HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    }

    const CXMLDoc& answer_;
    Parameters parameters_;
    size_t elements_ = 0;
};

}  // namespace

std::wstring ReplaceInName(const std::wstring& text, const Parameters& parameters) {
    std::wstring replaced;
    ForEachPiece(
        text, [&](const std::wstring& piece) { replaced += piece; },
        [&](const std::wstring& name) { replaced += Lookup(name, text, parameters); });
    return replaced;
}

std::wstring ReplaceInFilter(const std::wstring& text, const Parameters& parameters) {
    if (text.find(L'$') == std::wstring::npos) return text;
    std::wstring replaced;
    std::wstring content;  // of the string literal that the pieces are in
    wchar_t quote = 0;     // that opened it; 0 = in none
    ForEachPiece(
        text,
        [&](const std::wstring& piece) {
            for (const wchar_t c : piece) {
                if (quote == 0 && (c == L'\'' || c == L'"')) {
                    quote = c;
                } else if (quote == c && quote != 0) {
                    replaced += Literal(content, quote);
                    content.clear();
                    quote = 0;
                } else {
                    (quote != 0 ? content : replaced) += c;
                }
            }
        },
        [&](const std::wstring& name) {
            (quote != 0 ? content : replaced) += Lookup(name, text, parameters);
        });
    if (quote != 0) replaced += quote + content;
    return replaced;
}

SchemaElement ExpandParameters(const SchemaElement& root, const CXMLDoc& answer) {
    return Expander(answer).Expand(root);
}

}  // namespace vlm
