// The spooler's Bidi containers, as the commands write and read them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "util/spooler_api.h"

namespace vlm::ctl {

// A request container with one entry per path, numbered from 0; it holds the paths, too.
class BidiRequest {
 public:
    explicit BidiRequest(const std::vector<std::string>& paths);
    BidiRequest(const BidiRequest&) = delete;
    BidiRequest& operator=(const BidiRequest&) = delete;

    BIDI_REQUEST_CONTAINER* Container() { return reinterpret_cast<BIDI_REQUEST_CONTAINER*>(bytes_.data()); }

 private:
    std::vector<std::wstring> paths_;
    std::vector<std::byte> bytes_;  // zeroed, and aligned for anything
};

// One entry of an answer, as text in UTF-8.
struct BidiAnswer {
    unsigned long request = 0;  // the number of the request's entry
    std::string path;
    std::string type;   // "BIDI_INT"
    std::string value;  // meaningless without hasValue; a blob in base64
    bool hasValue = false;
    unsigned long result = 0;  // 0, 232 (no value), 14 (out of memory), or what a lower monitor says
    std::string source;        // who gave the entry; empty when only the engine was asked

    bool operator==(const BidiAnswer&) const = default;
};

// Reads a response and frees it.
std::vector<BidiAnswer> TakeAnswers(BIDI_RESPONSE_CONTAINER* response);

// "found", "no value".
const char* ResultText(unsigned long result);

}  // namespace vlm::ctl
