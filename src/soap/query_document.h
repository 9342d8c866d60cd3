// Reads a query for printer elements out of its XML form (see printer_elements.h).
#pragma once

#include <windows.h>
// windows.h first.
#include <objidl.h>

#include "soap/printer_elements_request.h"

namespace vlm {

// E_FAIL for what is no XML or has another root.
HRESULT ReadQuery(const wchar_t* text, PrinterElementsQuery* query);
HRESULT ReadQuery(IStream* stream, PrinterElementsQuery* query);

}  // namespace vlm
