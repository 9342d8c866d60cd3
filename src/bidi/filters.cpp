#include "bidi/filters.h"

#include "util/vlutil.h"

namespace vlm {

namespace {

template <typename Select>
auto Run(const std::wstring& filter, Select select) {
    try {
        return select((L"//" + filter).c_str());
    } catch (const _com_error&) {
        Trace(L"Error: filter %ls of an extension file cannot be used\r\n", Printable(filter).c_str());
        throw;
    }
}

}  // namespace

ComPtr<IXMLDOMNode> SelectFirst(const CXMLDoc& answer, const std::wstring& filter) {
    return Run(filter, [&](const wchar_t* xpath) { return answer.SelectSingleNode(xpath); });
}

ComPtr<IXMLDOMNodeList> SelectAll(const CXMLDoc& answer, const std::wstring& filter) {
    return Run(filter, [&](const wchar_t* xpath) { return answer.SelectNodes(xpath); });
}

}  // namespace vlm
