#include "util/streams.h"
#include "util/text.h"

namespace vlm {

namespace {

constexpr ULONG kPiece = 4096;
constexpr size_t kLongestStream = 64 * 1024 * 1024;

}  // namespace

std::string DocumentToUtf8(std::wstring_view document) {
    const size_t end = document.starts_with(L"<?xml ") ? document.find(L"?>") : std::wstring_view::npos;
    if (end != std::wstring_view::npos) document.remove_prefix(end + 2);
    return ToUtf8(document);
}

HRESULT MakeStream(std::string_view bytes, IStream** stream) {
    *stream = nullptr;
    if (bytes.size() > kLongestStream) return E_OUTOFMEMORY;
    ComPtr<IStream> made;
    HRESULT hr = CreateStreamOnHGlobal(nullptr, TRUE, made.Receive());
    if (FAILED(hr)) return hr;
    hr = made->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr);
    if (SUCCEEDED(hr)) hr = made->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
    if (FAILED(hr)) return hr;
    *stream = made.Detach();
    return S_OK;
}

HRESULT ReadStream(IStream* stream, size_t most, std::string* bytes) {
    bytes->clear();
    while (bytes->size() <= most) {
        const size_t size = bytes->size();
        bytes->resize(size + kPiece);
        ULONG read = 0;
        const HRESULT hr = stream->Read(bytes->data() + size, kPiece, &read);
        bytes->resize(size + (FAILED(hr) ? 0 : read));
        if (FAILED(hr)) return hr;
        if (read == 0) break;
    }
    return S_OK;
}

}  // namespace vlm
