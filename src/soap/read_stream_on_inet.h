// The body of an HTTP answer as a stream.
#pragma once

#include <windows.h>
// windows.h first.
#include <wininet.h>

#include <atomic>
#include <cstdint>

#include "util/com.h"

namespace vlm {

// Reads the body of `request`, whose answer's head has arrived, once from its start to its end; all that is
// not reading is not implemented. Does not own the request, which must stay open meanwhile.
//
// Each Read() is one InternetReadFile() of what is at hand, so that a body which comes in drips comes in as
// many Reads instead of keeping one busy without end. E_FAIL for
//  - a failed read, such as one that WinINet gave up after the receive time-out,
//  - a Read() after `deadline` (GetTickCount64), which bounds the sum of all of them,
//  - an end before the length that the answer announced: WinINet reports a closed connection as a plain end.
// Bytes behind the announced length are not part of the answer and are not read.
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

    std::atomic<ULONG> references_{1};
    HINTERNET request_;
    ULONGLONG deadline_;
    bool lengthKnown_;
    std::uint64_t left_ = 0;  // of the announced length
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace vlm
