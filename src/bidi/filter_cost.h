// How long an XPath expression may search in a document, estimated before it is run: a search cannot be
// stopped. Plain standard C++.
//
// An expression that looks at every sibling of every sibling takes minutes where there are thousands of them,
// and one that nests such searches takes years. The estimate is an upper bound for an evaluator that takes
// the steps one after the other, finds duplicates by comparing, and has no index. Better evaluators stay
// below it.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "bidi/answer_shape.h"

namespace vlm {

// In units of about 0.1 us, as measured on a processor of 2.5 GHz: visiting a node takes half of one. Nothing
// if the text is not an XPath 1.0 expression or nests deeper than 100 levels; `end`, if not null, then
// receives the number of the first character that does not fit.
std::optional<double> EstimateWork(std::wstring_view xpath, const AnswerShape& answer, size_t* end = nullptr);

}  // namespace vlm
