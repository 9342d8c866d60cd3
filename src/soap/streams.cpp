#include "soap/streams.h"

namespace vlm {

HRESULT ReadToEnd(IStream* stream, std::string* bytes) {
    const HRESULT hr = ReadStream(stream, kLongestBody, bytes);
    return SUCCEEDED(hr) && bytes->size() > kLongestBody ? E_FAIL : hr;
}

HRESULT ReadWhole(IStream* stream, std::string* bytes) {
    const HRESULT hr = stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
    return FAILED(hr) ? hr : ReadToEnd(stream, bytes);
}

}  // namespace vlm
