#include "soap/read_stream_on_inet.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

#include "soap/digits.h"
#include "util/outcome.h"
#include "util/text.h"

namespace vlm {

namespace {

// The announced length; none for a chunked body, which marks its own end, and for a header that is not a
// number.
std::optional<std::uint64_t> AnnouncedLength(HINTERNET request) {
    wchar_t text[32];
    DWORD size = sizeof text;
    if (HttpQueryInfoW(request, HTTP_QUERY_TRANSFER_ENCODING, text, &size, nullptr) ||
        GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        return std::nullopt;
    }
    size = sizeof text;
    if (!HttpQueryInfoW(request, HTTP_QUERY_CONTENT_LENGTH, text, &size, nullptr)) return std::nullopt;
    return ParseDigits(text, INT64_MAX);
}

#if defined(__GNUC__)
// COM interfaces have no virtual destructor; Release() destroys the object as what it is.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif
class CReadStreamOnInet final : public IStream {
 public:
    CReadStreamOnInet(HINTERNET request, ULONGLONG deadline, std::shared_ptr<std::wstring> reason)
        : request_(request),
          deadline_(deadline),
          left_(AnnouncedLength(request)),
          reason_(std::move(reason)) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP Read(void* buffer, ULONG count, ULONG* read) override {
        return GuardHresult([&] { return ReadSome(buffer, count, read); });
    }
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
    // Checked before each use of the request, which may be closed soon after the deadline.
    bool IsLate() const { return GetTickCount64() >= deadline_; }
    HRESULT Fail(const std::wstring& reason);
    HRESULT ReadSome(void* buffer, ULONG count, ULONG* read);

    std::atomic<ULONG> references_{1};
    HINTERNET request_;
    ULONGLONG deadline_;
    std::optional<std::uint64_t> left_;  // of the announced length
    std::shared_ptr<std::wstring> reason_;
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

HRESULT CReadStreamOnInet::Fail(const std::wstring& reason) {
    if (reason_) *reason_ = reason;
    return E_FAIL;
}

STDMETHODIMP CReadStreamOnInet::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    const bool known = iid == IID_IUnknown || iid == IID_ISequentialStream || iid == IID_IStream;
    *object = known ? static_cast<IStream*>(this) : nullptr;
    if (!known) return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CReadStreamOnInet::Release() {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
}

HRESULT CReadStreamOnInet::ReadSome(void* buffer, ULONG count, ULONG* read) {
    ULONG ignored = 0;
    if (read == nullptr) read = &ignored;
    *read = 0;
    if (buffer == nullptr) return STG_E_INVALIDPOINTER;
    if (count == 0 || left_ == 0u) return S_OK;
    constexpr wchar_t kLate[] = L"takes too long";
    if (IsLate()) return Fail(kLate);
    // InternetReadFile would wait until the whole buffer is full.
    DWORD available = 0;
    DWORD got = 0;
    bool good = InternetQueryDataAvailable(request_, &available, 0, 0) != FALSE;
    if (good && available != 0) {
        if (IsLate()) return Fail(kLate);
        const auto wanted = std::min<std::uint64_t>(std::min(count, available), left_.value_or(UINT64_MAX));
        good = InternetReadFile(request_, buffer, static_cast<DWORD>(wanted), &got) != FALSE;
    }
    if (!good) return Fail(L"cannot be read: " + FromUtf8(ErrorText(GetLastError())));
    if (left_ && got == 0) return Fail(L"ends " + std::to_wstring(*left_) + L" bytes early");
    if (left_) *left_ -= got;
    *read = got;
    return S_OK;
}

}  // namespace

IStream* NewReadStreamOnInet(HINTERNET request, ULONGLONG deadline, std::shared_ptr<std::wstring> reason) {
    return new CReadStreamOnInet(request, deadline, std::move(reason));
}

}  // namespace vlm
