#include "util/splssmgr.h"

namespace vlm {

BOOL CSplssMgr::Load() {
    Unload();
    library_.Reset(LoadLibraryW(L"spoolss.dll"));
    if (!library_) return FALSE;
    allocMem_ = FindFunction<AllocMemFunction>(library_.Get(), "RouterAllocBidiMem");
    freeMem_ = FindFunction<FreeMemFunction>(library_.Get(), "RouterFreeBidiMem");
    allocContainer_ =
        FindFunction<AllocContainerFunction>(library_.Get(), "RouterAllocBidiResponseContainer");
    return TRUE;
}

BOOL CSplssMgr::Unload() {
    if (!library_) return FALSE;
    library_.Reset();
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
