#include "tools/vlmctl/bidi/containers.h"

#include <fmt/format.h>

#include <array>

#include "bidi/bidi_mem.h"
#include "tools/vlmctl/console/code_text.h"
#include "util/scope_exit.h"
#include "util/text.h"

// windows.h first.
#include <wincrypt.h>

namespace vlm::ctl {

namespace {

std::string Base64(const BINARY_CONTAINER& blob) {
    DWORD length = 0;
    const DWORD flags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    if (!CryptBinaryToStringA(blob.pData, blob.cbBuf, flags, nullptr, &length)) return {};
    std::string text(length, '\0');
    if (!CryptBinaryToStringA(blob.pData, blob.cbBuf, flags, text.data(), &length)) return {};
    text.resize(length);
    return text;
}

BidiAnswer ReadEntry(const BIDI_RESPONSE_DATA& entry) {
    static constexpr std::array<const char*, 8> kNames{"BIDI_NULL",   "BIDI_INT",  "BIDI_FLOAT", "BIDI_BOOL",
                                                       "BIDI_STRING", "BIDI_TEXT", "BIDI_ENUM",  "BIDI_BLOB"};
    const BIDI_DATA& data = entry.data;
    BidiAnswer answer;
    answer.request = entry.dwReqNumber;
    answer.path = entry.pSchema != nullptr ? ToUtf8(entry.pSchema) : "";
    answer.type = data.dwBidiType < kNames.size() ? kNames[data.dwBidiType] : std::to_string(data.dwBidiType);
    answer.result = entry.dwResult;
    answer.hasValue = entry.dwResult == ERROR_SUCCESS && data.dwBidiType != BIDI_NULL;
    if (!answer.hasValue) return answer;
    switch (data.dwBidiType) {
        case BIDI_INT:
            answer.value = std::to_string(data.u.iData);
            break;
        case BIDI_FLOAT:
            answer.value = fmt::format("{}", data.u.fData);
            break;
        case BIDI_BOOL:
            answer.value = data.u.bData ? "true" : "false";
            break;
        case BIDI_BLOB:
            answer.value = Base64(data.u.biData);
            break;
        default:
            // An empty text is carried as null.
            answer.value = data.u.sData != nullptr ? ToUtf8(data.u.sData) : "";
    }
    return answer;
}

}  // namespace

BidiRequest::BidiRequest(const std::vector<std::string>& paths) {
    for (const std::string& path : paths)
        paths_.push_back(FromUtf8(path));
    bytes_.resize(sizeof(BIDI_REQUEST_CONTAINER) + paths_.size() * sizeof(BIDI_REQUEST_DATA));
    BIDI_REQUEST_CONTAINER* container = Container();
    container->Version = 1;
    container->Count = static_cast<DWORD>(paths_.size());
    for (size_t i = 0; i < paths_.size(); ++i) {
        container->aData[i].dwReqNumber = static_cast<DWORD>(i);
        container->aData[i].pSchema = paths_[i].data();
    }
}

std::vector<BidiAnswer> TakeAnswers(BIDI_RESPONSE_CONTAINER* response) {
    std::vector<BidiAnswer> answers;
    if (response == nullptr) return answers;
    const CBidiMem memory;
    const ScopeExit free([&] { memory.FreeContainer(response); });
    for (DWORD i = 0; i < response->Count; ++i)
        answers.push_back(ReadEntry(response->aData[i]));
    return answers;
}

const char* ResultText(unsigned long result) {
    static constexpr CodeText kTexts[] = {{ERROR_SUCCESS, "found"},
                                          {ERROR_NO_DATA, "no value"},
                                          {ERROR_OUTOFMEMORY, "out of memory"},
                                          {ERROR_NOT_SUPPORTED, "not supported"}};
    const char* const text = TextOfCode(kTexts, result);
    return text != nullptr ? text : "failed";
}

}  // namespace vlm::ctl
