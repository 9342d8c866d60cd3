// Parameters of extension files: names between two "$" in a filter or a name, replaced by texts of the
// printer.
//
// A text is cut at every "$"; its pieces are in turn literal text and parameter names, beginning with literal
// text, which is empty when the text begins with "$".
#pragma once

#include <map>
#include <string>

#include "bidi/schema_tree.h"
#include "util/vlxml.h"

namespace vlm {

using Parameters = std::map<std::wstring, std::wstring>;

// An unbound parameter is traced and throws CComErrorEx(E_FAIL).
std::wstring ReplaceInName(const std::wstring& text, const Parameters& parameters);
// In a filter, an XPath, a value that stands inside a string literal keeps being one, whatever quotes it
// holds: the literal is written anew where its own quotes would end it early.
std::wstring ReplaceInFilter(const std::wstring& text, const Parameters& parameters);

// The tree with every parameter replaced. Each Parameter becomes, for each node that its filter finds in the
// printer's answer, one Property of a concrete name; they stand in document order where the template stood,
// and neither the template nor the Parameter remains. Throws CComErrorEx, also when the tree would grow
// beyond bounds.
SchemaElement ExpandParameters(const SchemaElement& root, const CXMLDoc& answer);

}  // namespace vlm
