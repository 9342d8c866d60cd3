// Documents as bytes and as COM streams.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "util/com.h"

namespace vlm {

// `document` in UTF-8, without its XML declaration, which names the encoding that the text once had.
std::string DocumentToUtf8(std::wstring_view document);

// A memory stream that holds `bytes`, positioned at its start. At most 64 MiB.
HRESULT MakeStream(std::string_view bytes, IStream** stream);

// Everything from the stream's position to its end, in pieces of at most 4,096 bytes; stops once there are
// more than `most` bytes, which the caller checks. Fails with the stream's own HRESULT.
HRESULT ReadStream(IStream* stream, size_t most, std::string* bytes);

}  // namespace vlm
