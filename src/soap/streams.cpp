#include "soap/streams.h"

#include "util/vlutil.h"

namespace vlm {

HRESULT ReadToEnd(IStream* stream, std::string* bytes) {
    const HRESULT hr = ReadStream(stream, kLongestBody, bytes);
    if (FAILED(hr) || bytes->size() <= kLongestBody) return hr;
    Trace(L"SOAP: an answer of more than %u bytes is refused\r\n", static_cast<unsigned>(kLongestBody));
    return E_FAIL;
}

HRESULT ReadWhole(IStream* stream, std::string* bytes) {
    const HRESULT hr = stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
    return FAILED(hr) ? hr : ReadToEnd(stream, bytes);
}

}  // namespace vlm
