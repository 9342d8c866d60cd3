#include "tools/vlmctl/extension_files/filter.h"

#include <algorithm>
#include <array>

#include "bidi/filter_cost.h"
#include "bidi/xpath_names.h"

namespace vlm::ctl {

namespace {

// A value that stands as well between quotes as alone.
constexpr wchar_t kSampleValue = L'1';

enum class TokenKind { kName, kAxis, kFunction, kOther };

struct Token {
    TokenKind kind = TokenKind::kOther;
    QualifiedName name;
    size_t at = 0;
};

class Tokenizer {
 public:
    explicit Tokenizer(std::wstring_view text) : size_(text.size()), rest_(text) {}

    std::optional<Token> Next() {
        SkipBlanks();
        if (rest_.empty()) return std::nullopt;
        const wchar_t first = rest_.front();
        if (first == L'"' || first == L'\'') {
            const size_t end = rest_.find(first, 1);
            rest_.remove_prefix(end == std::wstring_view::npos ? rest_.size() : end + 1);
            return Token{};
        }
        if (!StartsXPathName(first)) {
            // A digit takes its whole number along, so that nothing in it passes for a name.
            const auto end = std::find_if_not(rest_.begin() + 1, rest_.end(), [&](wchar_t c) {
                return first >= L'0' && first <= L'9' && ContinuesXPathName(c);
            });
            rest_.remove_prefix(static_cast<size_t>(end - rest_.begin()));
            return Token{};
        }
        return ReadName();
    }

 private:
    Token ReadName() {
        Token token{TokenKind::kName, {}, size_ - rest_.size()};
        token.name.localName = Take(XPathNameLength(rest_));
        if (rest_.size() > 1 && rest_[0] == L':' && (rest_[1] == L'*' || StartsXPathName(rest_[1]))) {
            rest_.remove_prefix(1);
            token.name.prefix = std::move(token.name.localName);
            token.name.localName = Take(rest_.front() == L'*' ? 1 : XPathNameLength(rest_));
        }
        SkipBlanks();
        if (rest_.starts_with(L"::")) {
            rest_.remove_prefix(2);
            token.kind = TokenKind::kAxis;
        } else if (rest_.starts_with(L"(")) {
            token.kind = TokenKind::kFunction;
        }
        return token;
    }
    std::wstring Take(size_t length) {
        std::wstring taken(rest_.substr(0, length));
        rest_.remove_prefix(length);
        return taken;
    }
    void SkipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(kXmlSpace), rest_.size())); }

    size_t size_;
    std::wstring_view rest_;
};

// XPath compiles a call of any function and complains only when a node gets to it, which no node of a sample
// does.
bool IsFunction(const std::wstring& name) {
    static constexpr std::array<std::wstring_view, 35> kFunctions{
        L"last", L"position", L"count", L"id", L"local-name", L"namespace-uri", L"name", L"string", L"concat",
        L"starts-with", L"contains", L"substring-before", L"substring-after", L"substring", L"string-length",
        L"normalize-space", L"translate", L"boolean", L"not", L"true", L"false", L"lang", L"number", L"sum",
        L"floor", L"ceiling", L"round",
        // Node tests and operators are written like functions.
        L"node", L"text", L"comment", L"processing-instruction", L"and", L"or", L"div", L"mod"};
    return std::find(kFunctions.begin(), kFunctions.end(), name) != kFunctions.end();
}

// The filter with sample values for its parameters.
struct Sample {
    std::wstring text;
    std::vector<size_t> origins;  // of each character, and of the end: its number in the filter
};
Sample WithSampleValues(std::wstring_view filter) {
    Sample sample;
    for (size_t i = 0; i < filter.size(); ++i) {
        const size_t close = filter[i] == L'$' ? filter.find(L'$', i + 1) : std::wstring_view::npos;
        sample.origins.push_back(i);
        sample.text += close != std::wstring_view::npos ? kSampleValue : filter[i];
        if (close != std::wstring_view::npos) i = close;
    }
    sample.origins.push_back(filter.size());
    return sample;
}

}  // namespace

std::optional<QualifiedName> ParsePrefixedName(std::wstring_view text) {
    const size_t prefix = XPathNameLength(text);
    if (prefix == 0 || prefix >= text.size() || text[prefix] != L':') return std::nullopt;
    const std::wstring_view local = text.substr(prefix + 1);
    if (local.empty() || XPathNameLength(local) != local.size()) return std::nullopt;
    return QualifiedName{std::wstring(text.substr(0, prefix)), std::wstring(local)};
}

FilterNames ReadFilterNames(std::wstring_view filter) {
    static constexpr std::array<std::wstring_view, 4> kDownwardAxes{L"child", L"self", L"descendant",
                                                                    L"descendant-or-self"};
    FilterNames names;
    Tokenizer tokens(filter);
    bool atFirstStep = true;
    while (const std::optional<Token> token = tokens.Next()) {
        const QualifiedName& name = token->name;
        if (atFirstStep && token->kind == TokenKind::kName && name.localName != L"*") {
            names.first = name;
            names.firstAt = token->at;
        }
        atFirstStep =
            atFirstStep && token->kind == TokenKind::kAxis &&
            std::find(kDownwardAxes.begin(), kDownwardAxes.end(), name.localName) != kDownwardAxes.end();
        const auto isIt = [&](const Piece& prefix) { return prefix.text == name.prefix; };
        if (!name.prefix.empty() && std::ranges::none_of(names.prefixes, isIt))
            names.prefixes.push_back({name.prefix, token->at});
        const bool unknown =
            token->kind == TokenKind::kFunction && name.prefix.empty() && !IsFunction(name.localName);
        if (unknown && !names.unknownFunction) names.unknownFunction = Piece{name.localName, token->at};
    }
    return names;
}

ParameterUses ReadParameters(std::wstring_view text) {
    ParameterUses uses;
    for (size_t open = text.find(L'$'); open != std::wstring_view::npos;) {
        const size_t close = text.find(L'$', open + 1);
        if (close == std::wstring_view::npos || close == open + 1) {
            uses.unpaired = open;
            break;
        }
        uses.names.push_back({std::wstring(text.substr(open + 1, close - open - 1)), open});
        open = text.find(L'$', close + 1);
    }
    return uses;
}

FilterCompiler::FilterCompiler() {
    document_.Init();
    document_.LoadXml(L"<sample/>", nullptr);
}

std::optional<size_t> FilterCompiler::BreaksAt(std::wstring_view filter,
                                               const std::map<std::wstring, std::wstring>& declarations) {
    // "///" is no XPath, but not every parser minds.
    if (filter.starts_with(L'/')) return 0;
    constexpr std::wstring_view kBefore = L"//";
    const Sample sample = WithSampleValues(filter);
    const std::wstring xpath = std::wstring(kBefore) + sample.text;
    size_t end = 0;
    if (!EstimateWork(xpath, {}, &end)) {
        return sample.origins[std::max(end, kBefore.size()) - kBefore.size()];
    }
    try {
        if (declarations != bound_) {
            std::vector<NamespaceDeclaration> list;
            for (const auto& [prefix, uri] : declarations) {
                if (!prefix.empty()) list.push_back({prefix, uri});
            }
            document_.SetSelectionNamespaces(list);
            bound_ = declarations;
        }
        document_.SelectSingleNode(xpath.c_str());
        return std::nullopt;
    } catch (const _com_error& error) {
        if (error.Error() == E_OUTOFMEMORY) throw;
        return 0;
    }
}

}  // namespace vlm::ctl
