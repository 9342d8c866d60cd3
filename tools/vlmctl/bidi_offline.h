// The Bidi engine run on files: extension files and a saved answer of a printer, without printer and spooler.
#pragma once

#include <string>
#include <vector>

namespace vlm::ctl {

// One entry of an answer, as text in UTF-8.
struct BidiAnswer {
    std::string path;
    std::string type;   // "BIDI_INT"
    std::string value;  // meaningless without hasValue; a blob in base64
    bool hasValue = false;
    unsigned long result = 0;  // 0, 232 (no value) or 14 (out of memory)
};

struct BidiFiles {
    std::vector<std::string> extensions;  // in the order in which a printer loads them
    std::string printerAnswer;
};

// `action` is "Get" or "GetAll". All throw CommandError with one line that says what is wrong,
// CommandError::Status() being kFailed.
std::vector<BidiAnswer> AskOffline(const BidiFiles& files, const wchar_t* action,
                                   const std::vector<std::string>& paths);
// The WSD elements that the paths need, such as "pri:PrinterStatus".
std::vector<std::string> NeededElements(const BidiFiles& files, const std::vector<std::string>& paths);

// "found", "no value".
std::string ResultText(unsigned long result);

}  // namespace vlm::ctl
