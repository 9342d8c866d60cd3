#include "bidi/bidi_mem.h"

#include <cstring>
#include <cwchar>
#include <limits>
#include <utility>

#include "util/trace.h"

namespace vlm {

namespace {

bool HasText(const wchar_t* text) {
    return text != nullptr && *text != L'\0';
}

std::span<const BIDI_RESPONSE_DATA> EntriesOf(const BIDI_RESPONSE_CONTAINER* container) {
    if (container == nullptr) return {};
    return {container->aData, container->Count};
}

}  // namespace

void InitialiseContainer(BIDI_RESPONSE_CONTAINER& container, DWORD count, DWORD version, DWORD flags) {
    container.Version = version;
    container.Flags = flags;
    container.Count = count;
    std::memset(container.aData, 0, count * sizeof(BIDI_RESPONSE_DATA));
}

LoadedRouter::LoadedRouter() {
    if (!Load()) Trace(L"Error: Unable to load spoolss.dll, status %d\r\n", static_cast<int>(GetLastError()));
}

void* AllocTraced(const CSplssMgr& router, size_t size) {
    void* block = router.AllocBidiMem(size);
    if (block == nullptr)
        Trace(L"RouterAllocBidiMem(%d) failed with status %d\r\n", static_cast<int>(size),
              static_cast<int>(GetLastError()));
    return block;
}

void* CBidiMem::Duplicate(const void* data, size_t size) const {
    void* copy = AllocTraced(router_, size);
    return copy != nullptr ? std::memcpy(copy, data, size) : nullptr;
}

void CBidiMem::Free(void* block) const {
    if (block != nullptr) router_.FreeBidiMem(block);
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
            auto* copy = static_cast<BYTE*>(Duplicate(bytes.pData, bytes.cbBuf));
            if (copy != nullptr) destination.u.biData = {bytes.cbBuf, copy};
            return copy != nullptr;
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
            Free(std::exchange(value.u.sData, nullptr));
            break;
        case BIDI_BLOB:
            Free(std::exchange(value.u.biData, {}).pData);
            break;
        default:
            break;
    }
}

void CBidiMem::FreeContainer(BIDI_RESPONSE_CONTAINER* container) const {
    if (container == nullptr) return;
    for (DWORD i = 0; i < container->Count; ++i) {
        Free(container->aData[i].pSchema);
        FreeValue(container->aData[i].data);
    }
    Free(container);
}

BIDI_RESPONSE_CONTAINER* CBidiMem::Merge(const BIDI_RESPONSE_CONTAINER* first,
                                         const BIDI_RESPONSE_CONTAINER* second, DWORD version,
                                         DWORD flags) const {
    return Join(EntriesOf(first), EntriesOf(second), version, flags);
}

BIDI_RESPONSE_CONTAINER* CBidiMem::Append(const BIDI_RESPONSE_CONTAINER* container,
                                          const BIDI_RESPONSE_DATA& entry, DWORD version, DWORD flags) const {
    return Join(EntriesOf(container), {&entry, 1}, version, flags);
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

bool CBidiMem::CopyEntry(BIDI_RESPONSE_DATA& destination, const BIDI_RESPONSE_DATA& source) const {
    destination.dwResult = source.dwResult;
    destination.dwReqNumber = source.dwReqNumber;
    destination.pSchema = DuplicateString(source.pSchema);
    if (destination.pSchema == nullptr && HasText(source.pSchema)) return false;
    return CopyValue(destination.data, source.data);
}

BIDI_RESPONSE_CONTAINER* CBidiMem::Join(Entries first, Entries second, DWORD version, DWORD flags) const {
    const size_t total = first.size() + second.size();
    if (total == 0 || total > std::numeric_limits<DWORD>::max()) return nullptr;
    const auto count = static_cast<DWORD>(total);
    BIDI_RESPONSE_CONTAINER* joined = router_.AllocBidiResponseContainer(count);
    if (joined == nullptr) {
        Trace(L"RouterAllocBidiResponseContainer(%d) failed with status %d\r\n", static_cast<int>(count),
              static_cast<int>(GetLastError()));
        return nullptr;
    }
    InitialiseContainer(*joined, count, version, flags);
    BIDI_RESPONSE_DATA* next = joined->aData;
    for (const Entries entries : {first, second}) {
        for (const BIDI_RESPONSE_DATA& entry : entries) {
            if (CopyEntry(*next++, entry)) continue;
            FreeContainer(joined);
            return nullptr;
        }
    }
    return joined;
}

}  // namespace vlm
