// GetPrinterElements: asks a printer's WSD print service for printer elements by name, and hands the answer
// back in the form that the Bidi engine can address.
//
// The query is XML text as the engine writes it: a root EnumQueryElement that declares the prefixes of the
// vendor's extension files, and a child Name per element, with a qualified name as its text. Other children
// are passed over.
//
// The answer is a UTF-8 document, the printer's whole envelope with one prefix per namespace, chosen as
// prefix_normalizer.h says after the query's declarations; a stream positioned at its start, one reference
// for the caller.
//
// For threads with COM initialised; nothing is shared between calls. Failures are HRESULTs, with the reason
// in the trace, and leave the out pointer null. The printer's time-outs bound the exchange as
// soap_wininet_client.h says (5 seconds is the time-out here); no printer's answer makes the clean-up expand
// or recurse without end.
#pragma once

#include <windows.h>
// windows.h first.
#include <objidl.h>

namespace vlm {

// `url` as ParseServiceUrl() reads it, so a bare host address will do: http, port 80, "/wsd/print/". The
// request carries it as it is in wsa:To.
HRESULT GetPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** response);

// The same with the query in a stream, which is read from its beginning.
HRESULT GetPrinterElementsFromStream(const wchar_t* url, IStream* query, IStream** response);

// The two halves of GetPrinterElements(): the printer's answer as it came, and the clean-up of one.
HRESULT FetchPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** answer);
HRESULT CleanPrinterElements(IStream* answer, const wchar_t* queryText, IStream** response);

}  // namespace vlm
