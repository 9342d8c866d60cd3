#include "soap/read_stream_on_inet.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string_view>

#include "util/vlutil.h"

namespace vlm {

namespace {

// The announced length, unless the body says by itself where it ends (chunked) or the header is no number.
std::optional<std::uint64_t> AnnouncedLength(HINTERNET request) {
    wchar_t text[32];
    DWORD size = sizeof text;
    if (HttpQueryInfoW(request, HTTP_QUERY_TRANSFER_ENCODING, text, &size, nullptr) ||
        GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        return std::nullopt;
    }
    size = sizeof text;
    if (!HttpQueryInfoW(request, HTTP_QUERY_CONTENT_LENGTH, text, &size, nullptr)) return std::nullopt;
    const std::wstring_view digits(text);
    constexpr size_t kMostDigits = 18;  // what a 64-bit number holds in any case
    if (digits.empty() || digits.size() > kMostDigits) return std::nullopt;
    std::uint64_t length = 0;
    for (const wchar_t c : digits) {
        if (c < L'0' || c > L'9') return std::nullopt;
        length = length * 10 + static_cast<std::uint64_t>(c - L'0');
    }
    return length;
}

#if defined(__GNUC__)
// COM interfaces have no virtual destructor; Release() destroys the object as what it is.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif
class CReadStreamOnInet final : public IStream {
 public:
    CReadStreamOnInet(HINTERNET request, ULONGLONG deadline);

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP Read(void* buffer, ULONG count, ULONG* read) override;
    STDMETHODIMP Write(const void*, ULONG, ULONG*) override { return E_NOTIMPL; }
    STDMETHODIMP Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) override { return E_NOTIMPL; }
    STDMETHODIMP SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    STDMETHODIMP CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Commit(DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP Revert() override { return E_NOTIMPL; }
    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP Clone(IStream**) override { return E_NOTIMPL; }

 private:
    ~CReadStreamOnInet() = default;
    // Looked at before each use of the request, which may be closed soon after the deadline.
    bool IsLate() const;

    std::atomic<ULONG> references_{1};
    HINTERNET request_;
    ULONGLONG deadline_;
    bool lengthKnown_;
    std::uint64_t left_ = 0;  // of the announced length
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

CReadStreamOnInet::CReadStreamOnInet(HINTERNET request, ULONGLONG deadline)
    : request_(request), deadline_(deadline) {
    const std::optional<std::uint64_t> length = AnnouncedLength(request);
    lengthKnown_ = length.has_value();
    left_ = length.value_or(0);
}

bool CReadStreamOnInet::IsLate() const {
    if (GetTickCount64() < deadline_) return false;
    Trace(L"SOAP: the answer takes too long\r\n");
    return true;
}

STDMETHODIMP CReadStreamOnInet::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    const bool known = iid == IID_IUnknown || iid == IID_ISequentialStream || iid == IID_IStream;
    *object = known ? static_cast<IStream*>(this) : nullptr;
    if (!known) return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CReadStreamOnInet::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) CReadStreamOnInet::Release() {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
}

STDMETHODIMP CReadStreamOnInet::Read(void* buffer, ULONG count, ULONG* read) {
    ULONG ignored = 0;
    if (read == nullptr) read = &ignored;
    *read = 0;
    if (buffer == nullptr) return STG_E_INVALIDPOINTER;
    if (count == 0 || (lengthKnown_ && left_ == 0)) return S_OK;
    if (IsLate()) return E_FAIL;
    // InternetReadFile would wait until the whole buffer is full.
    DWORD available = 0;
    DWORD got = 0;
    bool good = InternetQueryDataAvailable(request_, &available, 0, 0) != FALSE;
    if (good && available != 0) {
        if (IsLate()) return E_FAIL;
        DWORD wanted = std::min<DWORD>(count, available);
        if (lengthKnown_) wanted = static_cast<DWORD>(std::min<std::uint64_t>(wanted, left_));
        good = InternetReadFile(request_, buffer, wanted, &got) != FALSE;
    }
    if (!good) {
        Trace(L"SOAP: reading the answer failed with error %lu\r\n", GetLastError());
        return E_FAIL;
    }
    if (lengthKnown_) {
        if (got == 0) {
            Trace(L"SOAP: the answer ends %llu bytes early\r\n", left_);
            return E_FAIL;
        }
        left_ -= got;
    }
    *read = got;
    return S_OK;
}

}  // namespace

IStream* NewReadStreamOnInet(HINTERNET request, ULONGLONG deadline) {
    return new CReadStreamOnInet(request, deadline);
}

}  // namespace vlm
