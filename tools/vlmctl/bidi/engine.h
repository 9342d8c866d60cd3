// The Bidi engine run in this process: extension files, and the answer of a printer, saved or fetched live;
// without monitor and spooler.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bidi/velunbidispl.h"
#include "tools/vlmctl/bidi/containers.h"
#include "tools/vlmctl/extension_files/source.h"
#include "util/com.h"

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

// One query, step by step, for whoever wants to look into the engine in between; the functions below take all
// steps at once. Each step throws CommandError.
class EngineQuery {
 public:
    // Loads the extension files.
    EngineQuery(const BidiSources& sources, const std::vector<std::string>& paths);
    EngineQuery(const EngineQuery&) = delete;
    EngineQuery& operator=(const EngineQuery&) = delete;

    // Finds out which WSD elements the paths need. False when the extension files have none of the paths.
    bool FindNeeded();
    const std::vector<std::string>& Needed() const { return needed_; }
    // The same as a query to the printer.
    const wchar_t* QueryXml() const { return queryXml_; }
    // Reads the printer's answer, or fetches it, and cleans it up.
    void Fetch();
    // Binds it, with Fetch() when that was not called.
    void Bind();
    std::vector<BidiAnswer> Ask(const wchar_t* action);

    const CVelunBidiSpl& Engine() const { return engine_; }

 private:
    const ComApartment apartment_{COINIT_MULTITHREADED};
    const BidiSources& sources_;
    CVelunBidiSpl engine_;
    BidiRequest request_;
    _bstr_t queryXml_;
    std::vector<std::string> needed_;
    std::optional<std::string> answer_;
};

// As the engine is given it.
std::wstring FullPath(const std::string& path);
// An extension file read as its author wrote it; empty when it cannot be read, or parsed, which `findings`
// tells.
std::optional<SourceFile> ReadSource(const std::string& extension, FindingList& findings);

// `action` is "Get" or "GetAll". All throw CommandError with one line that says what is wrong,
// CommandError::Status() being kFailed.
std::vector<BidiAnswer> AskEngine(const BidiSources& sources, const wchar_t* action,
                                  const std::vector<std::string>& paths);
// The WSD elements that the paths need.
std::vector<NeededElement> NeededElements(const BidiSources& sources, const std::vector<std::string>& paths);

// The printer's answer as it came: the saved one, or what it sends to this query, with its HTTP status.
std::string AnswerOf(const BidiSources& sources, const wchar_t* queryXml, int* status);

// Throws when the engine cannot load the extension files.
void CheckUsable(const std::vector<std::string>& extensions);

}  // namespace vlm::ctl
