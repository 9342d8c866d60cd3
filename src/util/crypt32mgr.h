// CCrypt32Mgr: the system's base64 decoder, loaded from crypt32.dll at run time for the life of the object.
//
// Do not include wincrypt.h together with this header: it makes a macro of the name CryptStringToBinary.
#pragma once

#include <windows.h>

#include "util/handles.h"

namespace vlm {

class CCrypt32Mgr {
 public:
    static constexpr DWORD kBase64Any = 6;  // CRYPT_STRING_BASE64_ANY

    // A missing DLL or function is not an error here; calls then answer FALSE.
    CCrypt32Mgr();

    // CryptStringToBinaryW with the arguments as they are. FALSE, without setting a last error, when the
    // function could not be loaded.
    BOOL CryptStringToBinary(const wchar_t* string, DWORD length, DWORD flags, BYTE* buffer,
                             DWORD* bufferSize, DWORD* skip, DWORD* usedFlags) const;

 private:
    using Function = BOOL WINAPI(const wchar_t*, DWORD, DWORD, BYTE*, DWORD*, DWORD*, DWORD*);

    Module module_;
    Function* cryptStringToBinary_ = nullptr;
};

}  // namespace vlm
