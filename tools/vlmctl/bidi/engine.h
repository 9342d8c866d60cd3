// The Bidi engine run in this process: extension files, and the answer of a printer, saved or fetched live;
// without monitor and spooler.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/vlmctl/bidi/containers.h"

namespace vlm::ctl {

struct BidiSources {
    std::vector<std::string> extensions;  // in the order in which a printer loads them
    // The printer's answer to GetPrinterElements: saved in this file, or asked for at this address.
    std::string printerAnswer;
    std::string printerUrl;
    // Everything in a saved answer counts, not only the elements that the paths ask the printer for.
    bool wholeAnswer = false;
};

struct NeededElement {
    std::string name;              // "pri:PrinterStatus"
    std::optional<bool> answered;  // by the printer; empty when it was not asked
};

// `action` is "Get" or "GetAll". All throw CommandError with one line that says what is wrong,
// CommandError::Status() being kFailed.
std::vector<BidiAnswer> AskEngine(const BidiSources& sources, const wchar_t* action,
                                  const std::vector<std::string>& paths);
// The WSD elements that the paths need.
std::vector<NeededElement> NeededElements(const BidiSources& sources, const std::vector<std::string>& paths);

// Throws when the engine cannot load the extension files.
void CheckUsable(const std::vector<std::string>& extensions);

}  // namespace vlm::ctl
