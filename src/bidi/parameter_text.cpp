#include "bidi/parameter_text.h"

#include <algorithm>

#include "util/xml_names.h"

namespace vlm {

namespace {

// Calls `literal` and `parameter` with the pieces of the text in turn, until one of them returns false.
template <typename Literal, typename Parameter>
void ForEachPiece(std::wstring_view text, Literal literal, Parameter parameter) {
    for (bool isParameter = false;; isParameter = !isParameter) {
        const size_t end = text.find(L'$');
        const std::wstring_view piece = text.substr(0, end);
        if (!(isParameter ? parameter(piece) : literal(piece))) return;
        if (end == std::wstring_view::npos || end + 1 == text.size()) return;
        text.remove_prefix(end + 1);
    }
}

// An optional sign, digits, and a point among or beside them.
bool IsNumber(std::wstring_view text) {
    if (text.starts_with(L'-')) text.remove_prefix(1);
    const auto isDigit = [](wchar_t c) { return c >= L'0' && c <= L'9'; };
    const size_t points = static_cast<size_t>(std::count(text.begin(), text.end(), L'.'));
    const size_t digits = static_cast<size_t>(std::count_if(text.begin(), text.end(), isDigit));
    return digits > 0 && points <= 1 && digits + points == text.size();
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

// Whether a filter's text, read piece by piece, is inside a string literal.
class QuoteTracker {
 public:
    bool Inside() const { return quote_ != 0; }
    wchar_t Quote() const { return quote_; }
    // True when the character begins or ends a literal.
    bool Pass(wchar_t c) {
        if (quote_ == 0 && (c == L'\'' || c == L'"')) {
            quote_ = c;
            return true;
        }
        if (quote_ == 0 || quote_ != c) return false;
        quote_ = 0;
        return true;
    }

 private:
    wchar_t quote_ = 0;  // that opened the literal; 0 = in none
};

}  // namespace

Replacement ReplaceInName(std::wstring_view text, const Parameters& parameters) {
    Replacement result;
    ForEachPiece(
        text,
        [&](std::wstring_view piece) {
            result.text += piece;
            return true;
        },
        [&](std::wstring_view name) {
            const auto bound = parameters.find(name);
            if (bound == parameters.end()) {
                result = {{}, ReplaceProblem::kUndefined, std::wstring(name)};
                return false;
            }
            result.text += bound->second;
            return true;
        });
    return result;
}

namespace {

// Cuts a name at each "$X$" of an X that `isBound` knows: calls `literal` and `parameter` with what stands in
// front of it and with X, and `literal` with what is left.
template <typename IsBound, typename Literal, typename Parameter>
void ForEachBound(std::wstring_view text, IsBound isBound, Literal literal, Parameter parameter) {
    size_t begin = 0;
    for (size_t open = text.find(L'$'); open != std::wstring_view::npos; open = text.find(L'$', open)) {
        const size_t close = text.find(L'$', open + 1);
        if (close == std::wstring_view::npos) break;
        const std::wstring_view name = text.substr(open + 1, close - open - 1);
        if (!isBound(name)) {
            open = close;
            continue;
        }
        literal(text.substr(begin, open - begin));
        parameter(name);
        open = begin = close + 1;
    }
    literal(text.substr(begin));
}

}  // namespace

std::wstring ReplaceBoundInName(std::wstring_view text, const Parameters& parameters) {
    std::wstring replaced;
    ForEachBound(
        text, [&](std::wstring_view name) { return parameters.contains(name); },
        [&](std::wstring_view literal) { replaced += literal; },
        [&](std::wstring_view name) { replaced += parameters.find(name)->second; });
    return replaced;
}

bool CanBecome(std::wstring_view text, std::wstring_view name, const std::set<std::wstring_view>& bound) {
    std::vector<std::wstring_view> literals;
    ForEachBound(
        text, [&](std::wstring_view parameter) { return bound.contains(parameter); },
        [&](std::wstring_view literal) { literals.push_back(literal); }, [](std::wstring_view) {});
    if (literals.size() == 1) return text == name;
    // The first and the last literal at the ends, the others in their order in between.
    const std::wstring_view first = literals.front();
    const std::wstring_view last = literals.back();
    if (name.size() < first.size() + last.size() || !name.starts_with(first) || !name.ends_with(last))
        return false;
    std::wstring_view middle = name.substr(first.size(), name.size() - first.size() - last.size());
    for (size_t i = 1; i + 1 < literals.size(); ++i) {
        const size_t found = middle.find(literals[i]);
        if (found == std::wstring_view::npos) return false;
        middle.remove_prefix(found + literals[i].size());
    }
    return true;
}

Replacement ReplaceInFilter(std::wstring_view text, const Parameters& parameters) {
    Replacement result;
    std::wstring content;  // of the string literal that the pieces are in
    QuoteTracker quotes;
    const auto readLiteral = [&](std::wstring_view piece) {
        for (const wchar_t c : piece) {
            const wchar_t opened = quotes.Quote();
            if (!quotes.Pass(c)) {
                (quotes.Inside() ? content : result.text) += c;
            } else if (opened != 0) {
                result.text += Literal(content, opened);
                content.clear();
            }
        }
        return true;
    };
    const auto replace = [&](std::wstring_view name) {
        const auto bound = parameters.find(name);
        if (bound == parameters.end()) {
            result = {{}, ReplaceProblem::kUndefined, std::wstring(name)};
        } else if (quotes.Inside()) {
            content += bound->second;
        } else if (IsNumber(bound->second) || IsNcName(bound->second)) {
            result.text += bound->second;
        } else {
            result = {{}, ReplaceProblem::kNotPlain, std::wstring(name)};
        }
        return result.problem == ReplaceProblem::kNone;
    };
    ForEachPiece(text, readLiteral, replace);
    // A literal without an end is no XPath, and no value may bring the quote that ends it.
    if (result.problem == ReplaceProblem::kNone && quotes.Inside()) result.text = text;
    return result;
}

std::vector<std::wstring> ParametersOutsideLiterals(std::wstring_view filter) {
    std::vector<std::wstring> names;
    QuoteTracker quotes;
    ForEachPiece(
        filter,
        [&](std::wstring_view piece) {
            for (const wchar_t c : piece)
                quotes.Pass(c);
            return true;
        },
        [&](std::wstring_view name) {
            if (!quotes.Inside() && std::find(names.begin(), names.end(), name) == names.end())
                names.emplace_back(name);
            return true;
        });
    return names;
}

}  // namespace vlm
