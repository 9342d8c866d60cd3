// CBidiMem: allocates, copies, merges and frees Bidi response containers in the spooler router's memory.
//
// Every block that these functions hand out comes from the router (CSplssMgr) and may be given to the
// spooler, which frees it. No function throws: what could not be allocated is null, or a result code, and
// leaves a line in the trace. Any number of threads may call its const functions on one object at once.
#pragma once

#include <span>

#include "util/splssmgr.h"
#include "util/spooler_api.h"

namespace vlm {

// The router for the life of the object. If it cannot be loaded, that is traced, and nothing can be
// allocated.
class LoadedRouter : public CSplssMgr {
 public:
    LoadedRouter();
    ~LoadedRouter() override { Unload(); }
};

// The router's AllocBidiMem, with a line in the trace when there is no memory.
void* AllocTraced(const CSplssMgr& router, size_t size);

class CBidiMem {
 public:
    CBidiMem() = default;
    virtual ~CBidiMem() = default;
    CBidiMem(const CBidiMem&) = delete;
    CBidiMem& operator=(const CBidiMem&) = delete;

    // Null for a null text and, on purpose, for an empty one: an empty schema name is carried as null.
    wchar_t* DuplicateString(const wchar_t* text) const;

    // Deep copy. False when memory runs out, and for a type number that does not exist; the destination then
    // has the type and no value.
    bool CopyValue(BIDI_DATA& destination, const BIDI_DATA& source) const;
    void FreeValue(BIDI_DATA& value) const;

    // Frees each entry's schema and value and the container. Null is allowed.
    void FreeContainer(BIDI_RESPONSE_CONTAINER* container) const;

    // A new container with deep copies of all entries of the first, then all of the second; either may be
    // null, and both stay the caller's. Null when there is no entry at all, or when a copy failed.
    BIDI_RESPONSE_CONTAINER* Merge(const BIDI_RESPONSE_CONTAINER* first,
                                   const BIDI_RESPONSE_CONTAINER* second, DWORD version, DWORD flags) const;
    // The same with one entry placed last.
    BIDI_RESPONSE_CONTAINER* Append(const BIDI_RESPONSE_CONTAINER* container, const BIDI_RESPONSE_DATA& entry,
                                    DWORD version, DWORD flags) const;

    // A container with one entry that answers `request` with `result` and no value; the entry's result is
    // ERROR_OUTOFMEMORY (14) when its schema is empty or cannot be copied. Returns 0, 87 for a null
    // `container`, or 14 when the container cannot be allocated.
    DWORD MakeSingleEntry(DWORD result, const BIDI_REQUEST_DATA& request, BIDI_RESPONSE_CONTAINER** container,
                          DWORD version, DWORD flags) const;

 private:
    void* Duplicate(const void* data, size_t size) const;
    // Null is allowed.
    void Free(void* block) const;
    bool CopyEntry(BIDI_RESPONSE_DATA& destination, const BIDI_RESPONSE_DATA& source) const;
    using Entries = std::span<const BIDI_RESPONSE_DATA>;
    BIDI_RESPONSE_CONTAINER* Join(Entries first, Entries second, DWORD version, DWORD flags) const;

    LoadedRouter router_;
};

// Zeroes the entries of a container that the router has just allocated, and sets its header.
void InitialiseContainer(BIDI_RESPONSE_CONTAINER& container, DWORD count, DWORD version, DWORD flags);

}  // namespace vlm
