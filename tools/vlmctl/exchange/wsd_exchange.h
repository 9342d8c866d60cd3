// Printer elements from a printer's WSD print service, for the commands that ask a printer live.
//
// For threads with COM initialised. Failures are CommandErrors whose one line names the address and the
// cause.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "soap/service_url.h"
#include "util/xml_names.h"

namespace vlm::ctl {

// The elements of a print service, in the order in which vlmctl asks for them.
inline constexpr std::array<const char*, 5> kPrintServiceElements = {
    "PrinterDescription", "PrinterConfiguration", "PrinterStatus", "DefaultPrintTicket",
    "PrinterCapabilities"};

// The query document for elements by their qualified names; a plain name is one of the print service ("pri",
// which is always declared). Throws with kWrongUsage for a name whose prefix nothing declares.
std::wstring QueryForElements(const std::vector<std::string>& names,
                              const std::vector<NamespaceDeclaration>& declarations);

// A printer's address taken apart. Throws with kWrongUsage for one that no printer can have. The monitor
// takes any scheme but https for http, since port monitors hand out what they like; who types one means it.
ServiceUrl ParsePrinterUrl(const std::string& url);

// The answer to a query document, as the printer sent it, and its HTTP status.
std::string FetchAnswer(const std::string& url, const wchar_t* query, int* status = nullptr);
// The same as the monitor hands it to the Bidi engine: cleaned up, UTF-8. `received` is as the printer sent
// it.
std::string FetchCleanAnswer(const std::string& url, const wchar_t* query, std::string* received = nullptr);

}  // namespace vlm::ctl
