// Printer elements from a printer's WSD print service, for the commands that ask a printer live.
//
// For threads with COM initialised, while a TraceKeeper lives. Failures are CommandErrors whose one line
// names the address and the cause.
#pragma once

#include <string>
#include <vector>

namespace vlm::ctl {

struct PrefixDeclaration {
    std::string prefix;
    std::string uri;
};

// The query document for elements by their qualified names; a plain name is one of the print service ("pri",
// which is always declared). Throws with kWrongUsage for a name whose prefix nothing declares.
std::wstring QueryForElements(const std::vector<std::string>& names,
                              const std::vector<PrefixDeclaration>& declarations);

// The answer to a query document, as the printer sent it.
std::string FetchAnswer(const std::string& url, const wchar_t* query);
// The same as the monitor hands it to the Bidi engine: cleaned up, UTF-8.
std::string FetchCleanAnswer(const std::string& url, const wchar_t* query);

}  // namespace vlm::ctl
