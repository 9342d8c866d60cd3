#include "bidi/filters.h"

#include "bidi/engine_error.h"
#include "bidi/filter_cost.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

// With the values of its parameters.
constexpr size_t kLongestFilter = 65'536;

}  // namespace

template <typename Select>
auto AnswerSearch::Run(const std::wstring& filter, const SchemaElement& cause, Select select) const {
    if (filter.size() > kLongestFilter) {
        Trace(L"Error: a filter may have at most %d characters with its parameters' values: %ls\r\n",
              static_cast<int>(kLongestFilter), DescribeElement(cause).c_str());
        ThrowEngineError(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA));
    }
    const std::wstring xpath = L"//" + filter;
    const std::optional<double> work = EstimateWork(xpath, shape_);
    if (work) budget_.SpendSearch(*work, cause);
    try {
        if (!work) ThrowEngineError(E_FAIL);
        return select(xpath.c_str());
    } catch (const _com_error&) {
        Trace(L"Error: filter %ls of an extension file cannot be used\r\n", Printable(filter).c_str());
        throw;
    }
}

ComPtr<IXMLDOMNode> AnswerSearch::First(const std::wstring& filter, const SchemaElement& cause) const {
    return Run(filter, cause, [&](const wchar_t* xpath) { return answer_.SelectSingleNode(xpath); });
}

ComPtr<IXMLDOMNodeList> AnswerSearch::All(const std::wstring& filter, const SchemaElement& cause) const {
    return Run(filter, cause, [&](const wchar_t* xpath) { return answer_.SelectNodes(xpath); });
}

}  // namespace vlm
