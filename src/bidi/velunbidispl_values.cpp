// The half of the engine that fills response containers: router memory and typed values.
#include "bidi/velunbidispl.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <limits>
#include <string_view>

#include "bidi/answer_pass.h"
#include "bidi/bidi_mem.h"
#include "bidi/engine_error.h"
#include "util/trace.h"

namespace vlm {

namespace {

constexpr DWORD kContainerVersion = 1;

// Strings of this many characters and more are refused.
constexpr size_t kStringOverflow = 0x80000000;

constexpr struct {
    const wchar_t* name;
    DWORD type;
} kTypes[] = {
    {L"BIDI_INT", BIDI_INT},   {L"BIDI_FLOAT", BIDI_FLOAT}, {L"BIDI_STRING", BIDI_STRING},
    {L"BIDI_BOOL", BIDI_BOOL}, {L"BIDI_BLOB", BIDI_BLOB},
};

// Independent of the process's locale. 0 for a text that does not begin with a number.
float FloatIn(std::wstring_view text) {
    const size_t begin = text.find_first_not_of(L" \t\r\n");
    if (begin == std::wstring_view::npos) return 0;
    text.remove_prefix(begin);
    if (text.starts_with(L'+') && !text.starts_with(L"+-")) text.remove_prefix(1);
    std::string digits;
    for (const wchar_t c : text)
        digits.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    double value = 0;
    const std::from_chars_result result =
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (result.ec != std::errc::result_out_of_range) return static_cast<float>(value);
    const bool tiny = digits.find("e-") != std::string::npos || digits.find("E-") != std::string::npos;
    const float bound = tiny ? 0.0F : std::numeric_limits<float>::infinity();
    return digits.starts_with('-') ? -bound : bound;
}

wchar_t* DuplicateForRouter(const wchar_t* text) {
    const size_t count = std::wcslen(text) + 1;
    if (count >= kStringOverflow) {
        Trace(L"RouterAllocBidiMem failed due to overflow\r\n");
        return nullptr;
    }
    // A table of its own, loaded for this one string; and after a failure it is not unloaded: both intended.
    // What stays behind is one reference to a DLL that the spooler never unloads anyway.
    CSplssMgr router;
    router.Load();
    const size_t size = count * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(AllocTraced(router, size));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, size);
    router.Unload();
    return copy;
}

int LastStatus() {
    return static_cast<int>(GetLastError());
}

}  // namespace

CVelunBidiSpl::Response CVelunBidiSpl::GetInitBidiResponseContainer(size_t count) const {
    const auto entries = static_cast<DWORD>(count);
    Response response(router_.AllocBidiResponseContainer(entries));
    if (!response) {
        Trace(L"CVelunBidiSpl::GetInitBidiResponseContainer(%d) failed with status %d\r\n",
              static_cast<int>(entries), LastStatus());
        ThrowEngineError(E_FAIL);
    }
    InitialiseContainer(*response.Get(), entries, kContainerVersion, 0);
    return response;
}

BYTE* CVelunBidiSpl::DecodeBlob(const wchar_t* text, DWORD* size) const {
    // Both results are tested with the opposite sense of the platform's BOOL: intended, so that well-formed
    // base64 yields no bytes.
    DWORD needed = 0;
    if (crypt32_.CryptStringToBinary(text, 0, CCrypt32Mgr::kBase64Any, nullptr, &needed, nullptr, nullptr)) {
        if (GetLastError() != ERROR_MORE_DATA) {
            Trace(L"CryptStringToBinary() failed with status %d\r\n", LastStatus());
            return nullptr;
        }
    } else {
        needed = 0;  // what a failed query leaves here means nothing
    }
    auto* block = static_cast<BYTE*>(AllocTraced(router_, needed));
    if (block == nullptr) return nullptr;
    DWORD written = needed;
    if (crypt32_.CryptStringToBinary(text, 0, CCrypt32Mgr::kBase64Any, block, &written, nullptr, nullptr)) {
        Trace(L"CryptStringToBinary() failed with status %d\r\n", LastStatus());
        router_.FreeBidiMem(block);
        return nullptr;
    }
    *size = needed;
    return block;
}

void CVelunBidiSpl::FillEntry(BIDI_RESPONSE_DATA& entry, DWORD number, const std::wstring& schema,
                              const LeafAnswer* answer) const {
    entry.dwReqNumber = number;
    entry.pSchema = DuplicateForRouter(schema.c_str());
    if (entry.pSchema == nullptr) ThrowEngineError(E_FAIL);
    entry.dwResult = ERROR_NO_DATA;
    entry.data.dwBidiType = BIDI_NULL;
    if (answer == nullptr || !answer->text) return;
    // With regard to case: an answer of any other type has no value.
    const auto* known = std::find_if(std::begin(kTypes), std::end(kTypes),
                                     [&](const auto& candidate) { return answer->type == candidate.name; });
    if (known == std::end(kTypes)) return;

    const wchar_t* const text = answer->text->c_str();
    entry.data.dwBidiType = known->type;
    // An entry without its value must not count as found.
    bool found = true;
    switch (known->type) {
        case BIDI_INT:
            entry.data.u.iData = std::wcstol(text, nullptr, 10);
            break;
        case BIDI_FLOAT:
            entry.data.u.fData = FloatIn(text);
            break;
        case BIDI_STRING:
            entry.data.u.sData = DuplicateForRouter(text);
            found = entry.data.u.sData != nullptr;
            break;
        case BIDI_BOOL:
            entry.data.u.bData = std::wcscmp(text, L"true") == 0 ? TRUE : FALSE;
            break;
        default:
            entry.data.u.biData.pData = DecodeBlob(text, &entry.data.u.biData.cbBuf);
            found = entry.data.u.biData.pData != nullptr;
            break;
    }
    if (found) entry.dwResult = ERROR_SUCCESS;
}

}  // namespace vlm
