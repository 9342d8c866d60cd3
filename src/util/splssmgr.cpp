#include "util/splssmgr.h"

#include "util/handles.h"

namespace vlm {

BOOL CSplssMgr::Load() {
    Unload();
    library_ = LoadLibraryW(L"spoolss.dll");
    if (library_ == nullptr) return FALSE;
    allocMem_ = FindFunction<AllocMemFunction>(library_, "RouterAllocBidiMem");
    freeMem_ = FindFunction<FreeMemFunction>(library_, "RouterFreeBidiMem");
    allocContainer_ = FindFunction<AllocContainerFunction>(library_, "RouterAllocBidiResponseContainer");
    return TRUE;
}

BOOL CSplssMgr::Unload() {
    if (library_ == nullptr) return FALSE;
    const LastErrorKeeper keeper;
    FreeLibrary(library_);
    library_ = nullptr;
    allocMem_ = nullptr;
    freeMem_ = nullptr;
    allocContainer_ = nullptr;
    return TRUE;
}

void* CSplssMgr::AllocBidiMem(size_t size) const {
    return allocMem_ != nullptr ? allocMem_(size) : nullptr;
}

void CSplssMgr::FreeBidiMem(void* block) const {
    if (freeMem_ != nullptr) freeMem_(block);
}

BIDI_RESPONSE_CONTAINER* CSplssMgr::AllocBidiResponseContainer(DWORD count) const {
    return allocContainer_ != nullptr ? allocContainer_(count) : nullptr;
}

}  // namespace vlm
