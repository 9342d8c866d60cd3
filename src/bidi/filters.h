// Filters of extension files, run in a printer's answer: XPath expressions behind "//".
#pragma once

#include <string>

#include "util/vlxml.h"

namespace vlm {

// The first match in document order, or null; all matches. A filter that is no XPath, or uses a prefix that
// is not declared, is traced and throws CComErrorEx.
ComPtr<IXMLDOMNode> SelectFirst(const CXMLDoc& answer, const std::wstring& filter);
ComPtr<IXMLDOMNodeList> SelectAll(const CXMLDoc& answer, const std::wstring& filter);

}  // namespace vlm
