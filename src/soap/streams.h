// Documents as bytes and as COM streams.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "util/com.h"

namespace vlm {

// No answer of a printer is longer than this; the longest real ones have some hundred kilobytes.
inline constexpr size_t kLongestBody = 16 * 1024 * 1024;

std::string ToUtf8(std::wstring_view text);

// A memory stream that holds `bytes`, positioned at its start.
HRESULT MakeStream(std::string_view bytes, IStream** stream);

// Everything from the stream's position to its end, in pieces of at most 4,096 bytes. Fails with the stream's
// own HRESULT, or with E_FAIL where there is more than kLongestBody.
HRESULT ReadToEnd(IStream* stream, std::string* bytes);

// The same from the stream's beginning.
HRESULT ReadWhole(IStream* stream, std::string* bytes);

}  // namespace vlm
