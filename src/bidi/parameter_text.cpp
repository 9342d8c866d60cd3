#include "bidi/parameter_text.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "util/xml_names.h"

namespace vlm {

namespace {

struct Piece {
    std::wstring_view text;
    bool isParameter;
};

std::vector<Piece> CutAtDollars(std::wstring_view text) {
    std::vector<Piece> pieces;
    for (bool isParameter = false;; isParameter = !isParameter) {
        const size_t end = text.find(L'$');
        pieces.push_back({text.substr(0, end), isParameter});
        if (end == std::wstring_view::npos || end + 1 == text.size()) return pieces;
        text.remove_prefix(end + 1);
    }
}

// The same, with only "$X$" of an X that `isBound` knows for a parameter.
template <typename IsBound>
std::vector<Piece> CutAtBound(std::wstring_view text, IsBound isBound) {
    std::vector<Piece> pieces;
    size_t begin = 0;
    for (size_t open = text.find(L'$'); open != std::wstring_view::npos; open = text.find(L'$', open)) {
        const size_t close = text.find(L'$', open + 1);
        if (close == std::wstring_view::npos) break;
        const std::wstring_view name = text.substr(open + 1, close - open - 1);
        if (!isBound(name)) {
            open = close;
            continue;
        }
        pieces.push_back({text.substr(begin, open - begin), false});
        pieces.push_back({name, true});
        open = begin = close + 1;
    }
    pieces.push_back({text.substr(begin), false});
    return pieces;
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

// The quote of the literal that a filter's text is in behind the character `c`; 0 in none.
wchar_t QuoteBehind(wchar_t quote, wchar_t c) {
    if (quote == 0 && (c == L'\'' || c == L'"')) return c;
    return quote == c ? wchar_t{0} : quote;
}

}  // namespace

Replacement ReplaceInName(std::wstring_view text, const Parameters& parameters) {
    Replacement result;
    for (const Piece& piece : CutAtDollars(text)) {
        const auto bound = piece.isParameter ? parameters.find(piece.text) : parameters.end();
        if (piece.isParameter && bound == parameters.end())
            return {{}, ReplaceProblem::kUndefined, std::wstring(piece.text)};
        result.text += piece.isParameter ? bound->second : piece.text;
    }
    return result;
}

std::wstring ReplaceBoundInName(std::wstring_view text, const Parameters& parameters) {
    std::wstring replaced;
    for (const Piece& piece :
         CutAtBound(text, [&](std::wstring_view name) { return parameters.contains(name); }))
        replaced += piece.isParameter ? parameters.find(piece.text)->second : piece.text;
    return replaced;
}

bool CanBecome(std::wstring_view text, std::wstring_view name, const std::set<std::wstring_view>& bound) {
    const std::vector<Piece> pieces =
        CutAtBound(text, [&](std::wstring_view parameter) { return bound.contains(parameter); });
    if (pieces.size() == 1) return text == name;
    // The first and the last literal at the ends, the others in their order in between.
    const std::wstring_view first = pieces.front().text;
    const std::wstring_view last = pieces.back().text;
    if (name.size() < first.size() + last.size() || !name.starts_with(first) || !name.ends_with(last))
        return false;
    std::wstring_view middle = name.substr(first.size(), name.size() - first.size() - last.size());
    for (size_t i = 2; i + 1 < pieces.size(); i += 2) {
        const size_t found = middle.find(pieces[i].text);
        if (found == std::wstring_view::npos) return false;
        middle.remove_prefix(found + pieces[i].text.size());
    }
    return true;
}

Replacement ReplaceInFilter(std::wstring_view text, const Parameters& parameters) {
    Replacement result;
    std::wstring content;  // of the string literal that the pieces are in
    wchar_t quote = 0;     // that opened it
    for (const Piece& piece : CutAtDollars(text)) {
        if (piece.isParameter) {
            const auto bound = parameters.find(piece.text);
            if (bound == parameters.end()) return {{}, ReplaceProblem::kUndefined, std::wstring(piece.text)};
            if (quote == 0 && !IsNumber(bound->second) && !IsNcName(bound->second))
                return {{}, ReplaceProblem::kNotPlain, std::wstring(piece.text)};
            (quote != 0 ? content : result.text) += bound->second;
            continue;
        }
        for (const wchar_t c : piece.text) {
            const wchar_t before = std::exchange(quote, QuoteBehind(quote, c));
            if (before == quote) {
                (quote != 0 ? content : result.text) += c;
            } else if (before != 0) {
                result.text += Literal(content, before);
                content.clear();
            }
        }
    }
    // A literal without an end is no XPath, and no value may bring the quote that ends it.
    if (quote != 0) result.text = text;
    return result;
}

std::vector<std::wstring> ParametersOutsideLiterals(std::wstring_view filter) {
    std::vector<std::wstring> names;
    wchar_t quote = 0;
    for (const Piece& piece : CutAtDollars(filter)) {
        if (!piece.isParameter) {
            quote = std::accumulate(piece.text.begin(), piece.text.end(), quote, QuoteBehind);
        } else if (quote == 0 && std::find(names.begin(), names.end(), piece.text) == names.end()) {
            names.emplace_back(piece.text);
        }
    }
    return names;
}

}  // namespace vlm
