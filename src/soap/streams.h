// What a service sends, read within bounds.
#pragma once

#include "util/streams.h"
#include "util/xml_bounds.h"

namespace vlm {

// A longer answer would not be let through to a parser; the longest real ones have some hundred kilobytes.
inline constexpr size_t kLongestBody = kPrinterAnswerLimits.bytes;

// Everything from the stream's position to its end. Fails with the stream's own HRESULT, or with E_FAIL where
// there is more than kLongestBody.
HRESULT ReadToEnd(IStream* stream, std::string* bytes);

// The same from the stream's beginning.
HRESULT ReadWhole(IStream* stream, std::string* bytes);

}  // namespace vlm
