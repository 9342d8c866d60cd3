// CSplssMgr: the spooler router's Bidi allocator, loaded from spoolss.dll at run time.
//
// Every block that is handed to the spooler inside a Bidi response must come from this allocator, because the
// spooler frees it. Load and Unload are for one thread while no other uses the object; in between any number
// of threads may allocate and free through it.
#pragma once

#include "util/spooler_api.h"

namespace vlm {

class CSplssMgr {
 public:
    CSplssMgr() = default;
    // Does not unload: whoever calls Load decides when, with Unload.
    virtual ~CSplssMgr() { static_cast<void>(library_.Release()); }
    CSplssMgr(const CSplssMgr&) = delete;
    CSplssMgr& operator=(const CSplssMgr&) = delete;

    // FALSE, with the loader's last error, when spoolss.dll cannot be loaded. TRUE also when it lacks a
    // function; the calls below then do nothing.
    BOOL Load();
    // FALSE when nothing is loaded.
    BOOL Unload();

    // Null when memory runs out or the router lacks the function.
    void* AllocBidiMem(size_t size) const;
    void FreeBidiMem(void* block) const;
    // A container of `count` entries, or null as above.
    BIDI_RESPONSE_CONTAINER* AllocBidiResponseContainer(DWORD count) const;

 private:
    using AllocMemFunction = void* WINAPI(size_t);
    using FreeMemFunction = void WINAPI(void*);
    using AllocContainerFunction = BIDI_RESPONSE_CONTAINER* WINAPI(DWORD);

    Module library_;
    AllocMemFunction* allocMem_ = nullptr;
    FreeMemFunction* freeMem_ = nullptr;
    AllocContainerFunction* allocContainer_ = nullptr;
};

}  // namespace vlm
