// The half of the engine that fills response containers: router memory and typed values.
#include "bidi/velunbidispl.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "bidi/answer_pass.h"
#include "bidi/bidi_mem.h"
#include "bidi/engine_error.h"
#include "util/vlutil.h"

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

int LastStatus() {
    return static_cast<int>(GetLastError());
}

}  // namespace

BIDI_RESPONSE_CONTAINER* CVelunBidiSpl::GetInitBidiResponseContainer(DWORD count) const {
    BIDI_RESPONSE_CONTAINER* container = router_.AllocBidiResponseContainer(count);
    if (container == nullptr) {
        Trace(L"CVelunBidiSpl::GetInitBidiResponseContainer(%d) failed with status %d\r\n",
              static_cast<int>(count), LastStatus());
        return nullptr;
    }
    InitialiseContainer(*container, count, kContainerVersion, 0);
    return container;
}

wchar_t* CVelunBidiSpl::DuplicateForRouter(const wchar_t* text) {
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
    auto* copy = static_cast<wchar_t*>(router.AllocBidiMem(size));
    if (copy == nullptr) {
        Trace(L"RouterAllocBidiMem(%d) failed with status %d\r\n", static_cast<int>(size), LastStatus());
        return nullptr;
    }
    std::memcpy(copy, text, size);
    router.Unload();
    return copy;
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
    auto* block = static_cast<BYTE*>(router_.AllocBidiMem(needed));
    if (block == nullptr) {
        Trace(L"RouterAllocBidiMem(%d) failed with status %d\r\n", static_cast<int>(needed), LastStatus());
        return nullptr;
    }
    DWORD written = needed;
    if (crypt32_.CryptStringToBinary(text, 0, CCrypt32Mgr::kBase64Any, block, &written, nullptr, nullptr)) {
        Trace(L"CryptStringToBinary() failed with status %d\r\n", LastStatus());
        router_.FreeBidiMem(block);
        return nullptr;
    }
    *size = needed;
    return block;
}

void CVelunBidiSpl::SetTypedValue(BIDI_RESPONSE_DATA& entry, const wchar_t* schema, const wchar_t* type,
                                  const wchar_t* text) const {
    entry.pSchema = DuplicateForRouter(schema);
    if (entry.pSchema == nullptr) ThrowEngineError(E_FAIL);
    if (text == nullptr) {
        entry.data.dwBidiType = BIDI_NULL;
        return;
    }
    const auto* known = std::find_if(std::begin(kTypes), std::end(kTypes), [type](const auto& candidate) {
        return _wcsicmp(candidate.name, type) == 0;
    });
    if (known == std::end(kTypes)) {
        entry.dwResult = ERROR_NO_DATA;
        return;
    }
    entry.data.dwBidiType = known->type;
    switch (known->type) {
        case BIDI_INT:
            entry.data.u.iData = std::wcstol(text, nullptr, 10);
            break;
        case BIDI_FLOAT:
            entry.data.u.fData = static_cast<float>(std::wcstod(text, nullptr));
            break;
        case BIDI_STRING:
            entry.data.u.sData = DuplicateForRouter(text);
            // An entry without its value must not count as found.
            if (entry.data.u.sData == nullptr) entry.dwResult = ERROR_NO_DATA;
            break;
        case BIDI_BOOL:
            entry.data.u.bData = std::wcscmp(text, L"true") == 0 ? TRUE : FALSE;
            break;
        default: {
            BINARY_CONTAINER& bytes = entry.data.u.biData;
            bytes.pData = DecodeBlob(text, &bytes.cbBuf);
            if (bytes.pData == nullptr) entry.dwResult = ERROR_NO_DATA;
            break;
        }
    }
}

void CVelunBidiSpl::FillEntry(BIDI_RESPONSE_DATA& entry, const wchar_t* schema,
                              const LeafAnswer* answer) const {
    // Here the five names are matched with regard to case: an answer of any other type has no value.
    const bool found = answer != nullptr && answer->text &&
                       std::any_of(std::begin(kTypes), std::end(kTypes), [answer](const auto& candidate) {
                           return answer->type == candidate.name;
                       });
    entry.dwResult = found ? ERROR_SUCCESS : ERROR_NO_DATA;
    SetTypedValue(entry, schema, found ? answer->type.c_str() : nullptr,
                  found ? answer->text->c_str() : nullptr);
}

}  // namespace vlm
