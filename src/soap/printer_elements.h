// GetPrinterElements: asks a printer's WSD print service for printer elements by name, and hands the answer
// back in the form that the Bidi engine can address.
//
// The query is XML text as the engine writes it: a root EnumQueryElement that declares the prefixes of the
// vendor's extension files, and a child Name per element, with a qualified name as its text. Other children
// are skipped.
//
// The answer becomes a UTF-8 document, the printer's whole envelope with one prefix per namespace, chosen as
// prefix_normalizer.h says.
//
// For threads with COM initialised; nothing is shared between calls. A failure comes with its reason, which
// names the endpoint where the network is at fault; the functions that return a bare HRESULT trace it. The
// printer's time-outs bound the exchange as soap_wininet_client.h says (5 seconds is the time-out here). An
// answer beyond kPrinterAnswerLimits is refused before any parser sees it.
#pragma once

#include <windows.h>
// windows.h first.
#include <objidl.h>

#include <string>
#include <string_view>
#include <vector>

#include "util/outcome.h"
#include "util/xml_names.h"

namespace vlm {

// The printer's answer as it came, and its HTTP status. `url` as ParseServiceUrl() reads it, so a bare host
// address will do: http, port 80, "/wsd/print/". The request carries it as it is in wsa:To.
Outcome FetchPrinterElements(const wchar_t* url, const wchar_t* queryText, std::string* answer,
                             int* status = nullptr);

// The document that the engine takes, made from the answer as it came, with these prefixes or the query's for
// their namespaces. An HTTP status other than success is not a failure by itself, but the reason for a
// refused answer begins with it.
Outcome CleanPrinterElements(std::string_view answer, const std::vector<NamespaceDeclaration>& prefixes,
                             std::string* document, int status = 200);
Outcome CleanPrinterElements(std::string_view answer, const wchar_t* queryText, std::string* document,
                             int status = 200);

// Both, for callers that take the document as a stream: positioned at its start, one reference for the
// caller; null after a failure. The second reads the query from the stream's beginning.
HRESULT GetPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** response);
HRESULT GetPrinterElementsFromStream(const wchar_t* url, IStream* query, IStream** response);

}  // namespace vlm
