#include "tools/vlmctl/extension_files/filter.h"

#include <algorithm>
#include <array>

namespace vlm::ctl {

namespace {

// A value that stands as well between quotes as alone.
constexpr wchar_t kSampleValue[] = L"1";

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

bool StartsName(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_' || c >= 0x80;
}

bool ContinuesName(wchar_t c) {
    return StartsName(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.';
}

size_t NameLength(std::wstring_view text) {
    if (text.empty() || !StartsName(text.front())) return 0;
    const auto end = std::find_if_not(text.begin(), text.end(), ContinuesName);
    return static_cast<size_t>(end - text.begin());
}

enum class TokenKind { kName, kAxis, kFunction, kOther };

struct Token {
    TokenKind kind = TokenKind::kOther;
    QualifiedName name;
};

class Tokenizer {
 public:
    explicit Tokenizer(std::wstring_view text) : rest_(text) {}

    std::optional<Token> Next() {
        SkipBlanks();
        if (rest_.empty()) return std::nullopt;
        const wchar_t first = rest_.front();
        if (first == L'"' || first == L'\'') {
            const size_t end = rest_.find(first, 1);
            rest_.remove_prefix(end == std::wstring_view::npos ? rest_.size() : end + 1);
            return Token{};
        }
        if (!StartsName(first)) {
            // A digit takes its whole number along, so that nothing in it passes for a name.
            const auto end = std::find_if_not(rest_.begin() + 1, rest_.end(), [&](wchar_t c) {
                return first >= L'0' && first <= L'9' && ContinuesName(c);
            });
            rest_.remove_prefix(static_cast<size_t>(end - rest_.begin()));
            return Token{};
        }
        return ReadName();
    }

 private:
    Token ReadName() {
        Token token{TokenKind::kName, {L"", Take(NameLength(rest_))}};
        if (rest_.size() > 1 && rest_[0] == L':' && (rest_[1] == L'*' || StartsName(rest_[1]))) {
            rest_.remove_prefix(1);
            token.name.prefix = std::move(token.name.localName);
            token.name.localName = Take(rest_.front() == L'*' ? 1 : NameLength(rest_));
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
    void SkipBlanks() {
        while (!rest_.empty() && IsBlank(rest_.front()))
            rest_.remove_prefix(1);
    }

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

std::wstring WithSampleValues(std::wstring_view filter) {
    std::wstring replaced;
    bool parameter = false;
    for (;;) {
        const size_t end = filter.find(L'$');
        replaced += parameter ? kSampleValue : filter.substr(0, end);
        if (end == std::wstring_view::npos) return replaced;
        filter.remove_prefix(end + 1);
        parameter = !parameter;
    }
}

}  // namespace

std::optional<QualifiedName> ParsePrefixedName(std::wstring_view text) {
    const size_t prefix = NameLength(text);
    if (prefix == 0 || prefix >= text.size() || text[prefix] != L':') return std::nullopt;
    const std::wstring_view local = text.substr(prefix + 1);
    if (local.empty() || NameLength(local) != local.size()) return std::nullopt;
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
        if (atFirstStep && token->kind == TokenKind::kName && name.localName != L"*") names.first = name;
        atFirstStep =
            atFirstStep && token->kind == TokenKind::kAxis &&
            std::find(kDownwardAxes.begin(), kDownwardAxes.end(), name.localName) != kDownwardAxes.end();
        if (!name.prefix.empty() &&
            std::find(names.prefixes.begin(), names.prefixes.end(), name.prefix) == names.prefixes.end()) {
            names.prefixes.push_back(name.prefix);
        }
        const bool unknown =
            token->kind == TokenKind::kFunction && name.prefix.empty() && !IsFunction(name.localName);
        if (unknown && !names.unknownFunction) names.unknownFunction = name.localName;
    }
    return names;
}

std::optional<std::vector<std::wstring>> ParameterNames(std::wstring_view text) {
    std::vector<std::wstring> names;
    for (size_t begin = text.find(L'$'); begin != std::wstring_view::npos; begin = text.find(L'$')) {
        const size_t end = text.find(L'$', begin + 1);
        if (end == std::wstring_view::npos || end == begin + 1) return std::nullopt;
        names.emplace_back(text.substr(begin + 1, end - begin - 1));
        text.remove_prefix(end + 1);
    }
    return names;
}

FilterCompiler::FilterCompiler() {
    document_.Init();
    document_.LoadXml(L"<sample/>", nullptr);
}

bool FilterCompiler::Accepts(std::wstring_view filter,
                             const std::map<std::wstring, std::wstring>& declarations) {
    // "///" is no XPath, but not every parser minds.
    if (filter.starts_with(L'/')) return false;
    try {
        if (declarations != bound_) {
            std::vector<NamespaceDeclaration> list;
            for (const auto& [prefix, uri] : declarations) {
                if (!prefix.empty()) list.push_back({prefix, uri});
            }
            document_.SetSelectionNamespaces(list);
            bound_ = declarations;
        }
        document_.SelectSingleNode((L"//" + WithSampleValues(filter)).c_str());
        return true;
    } catch (const _com_error& error) {
        if (error.Error() == E_OUTOFMEMORY) throw;
        return false;
    }
}

}  // namespace vlm::ctl
