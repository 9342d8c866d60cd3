// A filter in the first line, its parameters in the others ("name=value"): no value changes what the filter
// is outside of its string literals, and each literal says what the author and the values put into it.
#include "bidi/parameter_text.h"

#include <libxml/xpath.h>

#include <algorithm>
#include <deque>

#include "fuzz_input.h"
#include "tests/soap/utf8.h"
#include "util/xml_names.h"

namespace {

using std::wstring;
using std::wstring_view;

// A piece of XPath text: a whole literal, or one character outside of literals.
struct Token {
    bool isLiteral;
    wstring text;
    bool operator==(const Token&) const = default;
};

struct Template {
    std::deque<Token> tokens;         // of the filter with its values
    std::vector<wstring> parameters;  // in their order
    std::vector<wstring> outside;     // those outside of literals
    bool isBalanced = true;           // no literal lacks its end
};

// By hand, character by character: quotes outside of parameters begin and end literals. Without `values`, "$"
// is a character like others.
Template Read(wstring_view filter, const vlm::Parameters* values) {
    Template result;
    wchar_t quote = 0;
    wstring literal;
    for (size_t i = 0; i < filter.size(); ++i) {
        const wchar_t c = filter[i];
        if (values != nullptr && c == L'$') {
            if (i + 1 == filter.size()) break;  // opens no parameter
            const wstring_view name = filter.substr(i + 1, filter.find(L'$', i + 1) - i - 1);
            i += name.size() + 1;
            result.parameters.emplace_back(name);
            if (quote == 0) result.outside.emplace_back(name);
            const auto found = values->find(name);
            const wstring value = found == values->end() ? L"" : found->second;
            if (quote != 0) literal += value;
            for (size_t k = 0; quote == 0 && k < value.size(); ++k)
                result.tokens.push_back({false, {value[k]}});
        } else if (quote == 0 && (c == L'\'' || c == L'"')) {
            quote = c;
        } else if (quote != 0 && c == quote) {
            result.tokens.push_back({true, literal});
            literal.clear();
            quote = 0;
        } else if (quote != 0) {
            literal += c;
        } else {
            result.tokens.push_back({false, {c}});
        }
    }
    result.isBalanced = quote == 0;
    return result;
}

bool TakeWord(std::deque<Token>* tokens, wstring_view word) {
    for (const wchar_t c : word) {
        if (tokens->empty() || tokens->front() != Token{false, {c}}) return false;
        tokens->pop_front();
    }
    return true;
}

// `text` as a literal, or as those that concat() joins, from the front of `tokens`.
bool TakeLiteral(std::deque<Token>* tokens, const wstring& text) {
    const auto take = [&](wstring* piece) {
        if (tokens->empty() || !tokens->front().isLiteral) return false;
        *piece += tokens->front().text;
        tokens->pop_front();
        return true;
    };
    wstring taken;
    const bool both = text.find(L'\'') != wstring::npos && text.find(L'"') != wstring::npos;
    if (!both) return take(&taken) && taken == text;
    if (!TakeWord(tokens, L"concat(")) return false;
    do {
        if (!take(&taken)) return false;
    } while (TakeWord(tokens, L","));
    return TakeWord(tokens, L")") && taken == text;
}

bool IsPlain(const wstring& value) {
    if (vlm::IsNcName(value)) return true;
    const size_t sign = value.starts_with(L'-');
    const auto digits = std::count_if(value.begin() + static_cast<ptrdiff_t>(sign), value.end(),
                                      [](wchar_t c) { return c >= L'0' && c <= L'9'; });
    const auto points = std::count(value.begin(), value.end(), L'.');
    return digits > 0 && points <= 1 && static_cast<size_t>(digits + points) + sign == value.size();
}

bool IsInXml(wstring_view text) {
    return std::none_of(text.begin(), text.end(), [](wchar_t c) {
        const bool control = c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r';
        return control || (c >= 0xD800 && c <= 0xDFFF) || c == 0xFFFE || c == 0xFFFF;
    });
}

// What an evaluator that is not ours makes of the expression.
std::string Evaluate(const wstring& expression) {
    const xmlXPathContextPtr context = xmlXPathNewContext(nullptr);
    context->error = [](void*, auto*) {};
    const std::string text = vlm::Narrow(expression);
    const xmlXPathObjectPtr object =
        xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(text.c_str()), context);
    std::string result = "no XPath";
    if (object != nullptr && object->type == XPATH_STRING)
        result = reinterpret_cast<const char*>(object->stringval);
    xmlXPathFreeObject(object);
    xmlXPathFreeContext(context);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const wstring input = vlm::Wide({reinterpret_cast<const char*>(data), size});
    wstring_view rest = input;
    const auto takeLine = [&rest] {
        const wstring_view line = rest.substr(0, rest.find(L'\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        return line;
    };
    const wstring_view filter = takeLine();
    vlm::Parameters values;
    while (!rest.empty()) {
        const wstring_view line = takeLine();
        const size_t equals = line.find(L'=');
        if (equals != wstring_view::npos) values[wstring(line.substr(0, equals))] = line.substr(equals + 1);
    }

    const Template expected = Read(filter, &values);
    const vlm::Replacement replaced = vlm::ReplaceInFilter(filter, values);
    const auto isBound = [&](const wstring& name) { return values.count(name) != 0; };
    const bool allBound = std::all_of(expected.parameters.begin(), expected.parameters.end(), isBound);
    const bool allPlain =
        std::all_of(expected.outside.begin(), expected.outside.end(),
                    [&](const wstring& name) { return !isBound(name) || IsPlain(values[name]); });
    FUZZ_CHECK((replaced.problem == vlm::ReplaceProblem::kNone) == (allBound && allPlain));
    FUZZ_CHECK(replaced.problem != vlm::ReplaceProblem::kUndefined || !isBound(replaced.parameter));
    FUZZ_CHECK((vlm::ReplaceInName(filter, values).problem == vlm::ReplaceProblem::kNone) == allBound);

    std::vector<wstring> outside = expected.outside;
    std::vector<wstring> told = vlm::ParametersOutsideLiterals(filter);
    std::sort(outside.begin(), outside.end());
    outside.erase(std::unique(outside.begin(), outside.end()), outside.end());
    std::sort(told.begin(), told.end());
    FUZZ_CHECK(told == outside);

    if (replaced.problem == vlm::ReplaceProblem::kNone) {
        Template result = Read(replaced.text, nullptr);
        for (const Token& token : expected.tokens) {
            if (!expected.isBalanced) break;
            const bool same = token.isLiteral ? TakeLiteral(&result.tokens, token.text)
                                              : TakeWord(&result.tokens, token.text);
            FUZZ_CHECK(same);
        }
        // A literal without an end is no XPath, and no value makes it one.
        FUZZ_CHECK(expected.isBalanced ? result.isBalanced && result.tokens.empty()
                                       : replaced.text == filter);
    }
    for (const auto& [name, value] : values) {
        if (name.find_first_of(L"$") != wstring::npos || !IsInXml(value)) continue;
        for (const wchar_t quote : {L'\'', L'"'}) {
            const wstring literal = quote + (L"$" + name) + L"$" + quote;
            FUZZ_CHECK(Evaluate(vlm::ReplaceInFilter(literal, values).text) == vlm::Narrow(value));
        }
    }
    return 0;
}
