// Filters of extension files, run in a printer's answer: XPath expressions behind "//".
#pragma once

#include <string>

#include "bidi/answer_shape.h"
#include "bidi/query_budget.h"
#include "util/vlxml.h"

namespace vlm {

class AnswerSearch {
 public:
    // `answer` and `budget` must outlive the object; `shape` is the answer's.
    AnswerSearch(const CXMLDoc& answer, AnswerShape shape, QueryBudget& budget)
        : answer_(answer), shape_(std::move(shape)), budget_(budget) {}

    // The first match in document order, or null; all matches. `cause` is the element with the filter. Throws
    // CComErrorEx if the filter is not XPath or uses an undeclared prefix, and, before it is run, if it would
    // search longer than the budget allows.
    ComPtr<IXMLDOMNode> First(const std::wstring& filter, const SchemaElement& cause) const;
    ComPtr<IXMLDOMNodeList> All(const std::wstring& filter, const SchemaElement& cause) const;

    QueryBudget& Budget() const { return budget_; }

 private:
    template <typename Select>
    auto Run(const std::wstring& filter, const SchemaElement& cause, Select select) const;

    const CXMLDoc& answer_;
    AnswerShape shape_;
    QueryBudget& budget_;
};

}  // namespace vlm
