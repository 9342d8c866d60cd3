// The codec's hook for diagnostics: a level, a label that names the place in the codec, and a source line.
//
// The hook does nothing in this build and has to stay free of side effects; the labels stay in the image, all
// of them, so that a debugger's breakpoint on it tells which step refused a frame.
#pragma once

#include "vpca/errors.h"

namespace vlm::vpca {

enum class LogLevel { kError = 1 };

void Log(LogLevel level, const wchar_t* label, int line);

// For an error on its way out.
inline VpcaError Logged(VpcaError error, const wchar_t* label, int line) {
    Log(LogLevel::kError, label, line);
    return error;
}

inline constexpr wchar_t kLogVersion[] = L"VPCA Coder (Version):";
inline constexpr wchar_t kLogMeasure[] = L"VPCA Decoder (Attribute Size):";
inline constexpr wchar_t kLogEncodedSize[] = L"VPCA Encoder (Attribute Size):";
inline constexpr wchar_t kLogEncodeFu[] = L"VPCA Coder (EncFU):";
inline constexpr wchar_t kLogDecodeFu[] = L"VPCA Coder (DecFU):";
inline constexpr wchar_t kLogEncodeFp[] = L"VPCA Coder (EncFP):";
inline constexpr wchar_t kLogDecodeFp[] = L"VPCA Coder (DecFP):";

// The labels of steps that carry their bytes as they are and refuse none.
extern const wchar_t* const kUnusedLogLabels[6];

}  // namespace vlm::vpca
