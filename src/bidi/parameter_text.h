// Parameters in the texts of extension files: names between two "$" in a filter or a name, to be replaced by
// texts of the printer. Plain standard C++.
//
// A text is cut at every "$"; its pieces are in turn literal text and parameter names, beginning with literal
// text, which is empty when the text begins with "$". A "$" that ends the text opens no parameter.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vlm {

using Parameters = std::map<std::wstring, std::wstring, std::less<>>;  // name to value

enum class ReplaceProblem {
    kNone,
    kUndefined,  // the parameter is not bound
    kNotPlain,   // its value would become part of an expression, and is neither a number nor a name
};

struct Replacement {
    std::wstring text;
    ReplaceProblem problem = ReplaceProblem::kNone;
    std::wstring parameter;  // that has the problem
};

// In a template's name. Every parameter has to be bound.
Replacement ReplaceInName(std::wstring_view text, const Parameters& parameters);

// In any other name: "$X$" of a bound X is replaced, every other "$" stands for itself, as in "US$".
std::wstring ReplaceBoundInName(std::wstring_view text, const Parameters& parameters);

// Whether one of those can make `name` of `text`, whatever values it is given for the parameters that are
// bound.
bool CanBecome(std::wstring_view text, std::wstring_view name, const std::set<std::wstring_view>& bound);

// The same in a filter, an XPath expression. A value that stands inside a string literal stays inside,
// whatever quotes it holds: the literal is written anew where its own quotes would end it early. Outside of
// one a value is taken only if it is a number or a name without colon, so that no printer writes the
// expression. A filter with a literal that does not end, which is no XPath, stays as it is.
Replacement ReplaceInFilter(std::wstring_view text, const Parameters& parameters);

// The parameters of a filter that stand outside its string literals, each once.
std::vector<std::wstring> ParametersOutsideLiterals(std::wstring_view filter);

}  // namespace vlm
