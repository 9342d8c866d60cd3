#include "bidi/filters.h"

#include "bidi/engine_error.h"
#include "bidi/filter_cost.h"
#include "util/trace.h"

namespace vlm {

namespace {

// With the values of its parameters.
constexpr size_t kLongestFilter = 65'536;

}  // namespace

template <typename Select>
auto AnswerSearch::Run(const std::wstring& filter, const SchemaElement& cause, Select select) const {
    if (filter.size() > kLongestFilter) {
        ThrowEngineError(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA),
                         L"a filter may have at most " + std::to_wstring(kLongestFilter) +
                             L" characters with its parameters' values: " + DescribeElement(cause));
    }
    const std::wstring xpath = L"//" + filter;
    const std::optional<double> work = EstimateWork(xpath, shape_);
    if (work) budget_.SpendSearch(*work, cause);
    HRESULT hr = E_FAIL;
    try {
        if (work) return select(xpath.c_str());
    } catch (const _com_error& error) {
        hr = error.Error();
    }
    ThrowEngineError(hr, L"filter " + Printable(filter) + L" cannot be used: " + DescribeElement(cause));
}

ComPtr<IXMLDOMNode> AnswerSearch::First(const std::wstring& filter, const SchemaElement& cause) const {
    return Run(filter, cause, [&](const wchar_t* xpath) { return answer_.SelectSingleNode(xpath); });
}

ComPtr<IXMLDOMNodeList> AnswerSearch::All(const std::wstring& filter, const SchemaElement& cause) const {
    return Run(filter, cause, [&](const wchar_t* xpath) { return answer_.SelectNodes(xpath); });
}

}  // namespace vlm
