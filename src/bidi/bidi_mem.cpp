#include "bidi/bidi_mem.h"

#include <cstring>
#include <cwchar>
#include <limits>

#include "util/trace.h"

namespace vlm {

namespace {

bool HasText(const wchar_t* text) {
    return text != nullptr && *text != L'\0';
}

}  // namespace

void InitialiseContainer(BIDI_RESPONSE_CONTAINER& container, DWORD count, DWORD version, DWORD flags) {
    container.Version = version;
    container.Flags = flags;
    container.Count = count;
    std::memset(container.aData, 0, count * sizeof(BIDI_RESPONSE_DATA));
}

CBidiMem::CBidiMem() {
    if (!router_.Load())
        Trace(L"Error: Unable to load spoolss.dll, status %d\r\n", static_cast<int>(GetLastError()));
}

CBidiMem::~CBidiMem() {
    router_.Unload();
}

void* CBidiMem::Duplicate(const void* data, size_t size) const {
    void* copy = router_.AllocBidiMem(size);
    if (copy != nullptr) return std::memcpy(copy, data, size);
    Trace(L"RouterAllocBidiMem(%d) failed with status %d\r\n", static_cast<int>(size),
          static_cast<int>(GetLastError()));
    return nullptr;
}

wchar_t* CBidiMem::DuplicateString(const wchar_t* text) const {
    if (!HasText(text)) return nullptr;
    return static_cast<wchar_t*>(Duplicate(text, (std::wcslen(text) + 1) * sizeof(wchar_t)));
}

bool CBidiMem::CopyValue(BIDI_DATA& destination, const BIDI_DATA& source) const {
    destination = {};
    destination.dwBidiType = source.dwBidiType;
    switch (source.dwBidiType) {
        case BIDI_NULL:
        case BIDI_INT:
        case BIDI_FLOAT:
        case BIDI_BOOL:
            destination.u.iData = source.u.iData;
            return true;
        case BIDI_STRING:
        case BIDI_TEXT:
        case BIDI_ENUM:
            destination.u.sData = DuplicateString(source.u.sData);
            return destination.u.sData != nullptr || !HasText(source.u.sData);
        case BIDI_BLOB: {
            const BINARY_CONTAINER& bytes = source.u.biData;
            if (bytes.cbBuf == 0) return true;
            if (bytes.pData == nullptr) return false;
            void* copy = Duplicate(bytes.pData, bytes.cbBuf);
            if (copy == nullptr) return false;
            destination.u.biData.cbBuf = bytes.cbBuf;
            destination.u.biData.pData = static_cast<BYTE*>(copy);
            return true;
        }
        default:
            return false;
    }
}

void CBidiMem::FreeValue(BIDI_DATA& value) const {
    switch (value.dwBidiType) {
        case BIDI_STRING:
        case BIDI_TEXT:
        case BIDI_ENUM:
            if (value.u.sData != nullptr) router_.FreeBidiMem(value.u.sData);
            value.u.sData = nullptr;
            break;
        case BIDI_BLOB:
            if (value.u.biData.pData != nullptr) router_.FreeBidiMem(value.u.biData.pData);
            value.u.biData.pData = nullptr;
            value.u.biData.cbBuf = 0;
            break;
        default:
            break;
    }
}

void CBidiMem::FreeContainer(BIDI_RESPONSE_CONTAINER* container) const {
    if (container == nullptr) return;
    for (DWORD i = 0; i < container->Count; ++i) {
        BIDI_RESPONSE_DATA& entry = container->aData[i];
        if (entry.pSchema != nullptr) router_.FreeBidiMem(entry.pSchema);
        FreeValue(entry.data);
    }
    router_.FreeBidiMem(container);
}

BIDI_RESPONSE_CONTAINER* CBidiMem::Merge(const BIDI_RESPONSE_CONTAINER* first,
                                         const BIDI_RESPONSE_CONTAINER* second, DWORD version,
                                         DWORD flags) const {
    return Join(first != nullptr ? first->aData : nullptr, first != nullptr ? first->Count : 0,
                second != nullptr ? second->aData : nullptr, second != nullptr ? second->Count : 0, version,
                flags);
}

BIDI_RESPONSE_CONTAINER* CBidiMem::Append(const BIDI_RESPONSE_CONTAINER* container,
                                          const BIDI_RESPONSE_DATA& entry, DWORD version, DWORD flags) const {
    return Join(container != nullptr ? container->aData : nullptr,
                container != nullptr ? container->Count : 0, &entry, 1, version, flags);
}

DWORD CBidiMem::MakeSingleEntry(DWORD result, const BIDI_REQUEST_DATA& request,
                                BIDI_RESPONSE_CONTAINER** container, DWORD version, DWORD flags) const {
    if (container == nullptr) return ERROR_INVALID_PARAMETER;
    *container = router_.AllocBidiResponseContainer(1);
    if (*container == nullptr) return ERROR_OUTOFMEMORY;
    InitialiseContainer(**container, 1, version, flags);
    BIDI_RESPONSE_DATA& entry = (*container)->aData[0];
    entry.dwReqNumber = request.dwReqNumber;
    entry.pSchema = DuplicateString(request.pSchema);
    // An empty schema has no duplicate either, and is reported the same way: intended.
    entry.dwResult = entry.pSchema != nullptr ? result : ERROR_OUTOFMEMORY;
    entry.data.dwBidiType = BIDI_NULL;
    return ERROR_SUCCESS;
}

bool CBidiMem::CopyEntries(BIDI_RESPONSE_DATA* destination, const BIDI_RESPONSE_DATA* source,
                           DWORD count) const {
    for (DWORD i = 0; i < count; ++i) {
        destination[i].dwResult = source[i].dwResult;
        destination[i].dwReqNumber = source[i].dwReqNumber;
        destination[i].pSchema = DuplicateString(source[i].pSchema);
        if (destination[i].pSchema == nullptr && HasText(source[i].pSchema)) return false;
        if (!CopyValue(destination[i].data, source[i].data)) return false;
    }
    return true;
}

BIDI_RESPONSE_CONTAINER* CBidiMem::Join(const BIDI_RESPONSE_DATA* first, DWORD firstCount,
                                        const BIDI_RESPONSE_DATA* second, DWORD secondCount, DWORD version,
                                        DWORD flags) const {
    if (secondCount > std::numeric_limits<DWORD>::max() - firstCount) return nullptr;
    const DWORD count = firstCount + secondCount;
    if (count == 0) return nullptr;
    BIDI_RESPONSE_CONTAINER* joined = router_.AllocBidiResponseContainer(count);
    if (joined == nullptr) {
        Trace(L"RouterAllocBidiResponseContainer(%d) failed with status %d\r\n", static_cast<int>(count),
              static_cast<int>(GetLastError()));
        return nullptr;
    }
    InitialiseContainer(*joined, count, version, flags);
    if (!CopyEntries(joined->aData, first, firstCount) ||
        !CopyEntries(joined->aData + firstCount, second, secondCount)) {
        FreeContainer(joined);
        return nullptr;
    }
    return joined;
}

}  // namespace vlm
