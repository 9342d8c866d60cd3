#include "util/crypt32mgr.h"

namespace vlm {

CCrypt32Mgr::CCrypt32Mgr() : module_(LoadLibraryW(L"crypt32.dll")) {
    cryptStringToBinary_ = FindFunction<Function>(module_.Get(), "CryptStringToBinaryW");
}

BOOL CCrypt32Mgr::CryptStringToBinary(const wchar_t* string, DWORD length, DWORD flags, BYTE* buffer,
                                      DWORD* bufferSize, DWORD* skip, DWORD* usedFlags) const {
    if (cryptStringToBinary_ == nullptr) return FALSE;
    return cryptStringToBinary_(string, length, flags, buffer, bufferSize, skip, usedFlags);
}

}  // namespace vlm
