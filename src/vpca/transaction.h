// One exchange with the printer over its own port: a private document on the port below the monitor, the
// request written into it, the answer read back through it.
//
// The caller holds the port's job lock and keeps the port alive during the whole exchange; a transaction
// belongs to one thread. Nothing throws; an exception of the port below is a failure like any other. Every
// failure has a reason and leaves a non-zero GetLastError(): the port's own, or
//   13  ERROR_INVALID_DATA         the answer cannot be decoded or answers another question
//   31  ERROR_GEN_FAILURE          the printer refused, or the port below failed without an error code
//   122 ERROR_INSUFFICIENT_BUFFER  the answer is larger than the caller's buffer, or there is no buffer
//   87  ERROR_INVALID_PARAMETER    the request cannot be encoded
//   6   ERROR_INVALID_HANDLE       there is nothing below the port
//   8   ERROR_NOT_ENOUGH_MEMORY
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

#include "vpca/bodies.h"
#include "vpca/frame.h"

namespace vlm::vpca {

// What an exchange needs of a port: the handle of the port below, its four operations as MONITOR2 has them,
// and the port's flags, of which bit 0 (kPortJobActive) is set while the document is open.
struct VpcaPort {
    HANDLE lower = nullptr;
    std::atomic<uint32_t>* flags = nullptr;
    BOOL(WINAPI* startDocPort)(HANDLE, LPWSTR, DWORD, DWORD, LPBYTE) = nullptr;
    BOOL(WINAPI* writePort)(HANDLE, LPBYTE, DWORD, LPDWORD) = nullptr;
    BOOL(WINAPI* readPort)(HANDLE, LPBYTE, DWORD, LPDWORD) = nullptr;
    BOOL(WINAPI* endDocPort)(HANDLE) = nullptr;
};

inline constexpr uint32_t kPortJobActive = 0x1;

// Why an exchange failed: a text, and the number that it is about.
struct ExchangeReason {
    const wchar_t* text = L"";
    std::optional<uint32_t> value;
};

// Reads the data block `*dataId` into `buffer`. `*size` is the buffer's size before and the bytes read
// afterwards, and stays as it was on failure. Returns 0 or a Win32 error code; 87 when an argument is null.
// `reason`, if not null, receives that of a failure.
DWORD ReadDataBlock(const VpcaPort* port, const uint32_t* dataId, uint8_t* buffer, uint32_t* size,
                    ExchangeReason* reason = nullptr);

// Asks for attributes and returns the value of the first one if its length is known: 8 bytes of attribute
// 180, 28 of 2405, none of any other. `callerValues` are two words for the frame's header. Otherwise as
// above.
DWORD ReadAttribute(const VpcaPort* port, const uint32_t* callerValues, AttributeRequest* request,
                    uint8_t* buffer, uint32_t* size, ExchangeReason* reason = nullptr);

// The steps of an exchange, in the order of calling: Initialise, Prepare…, Send, Receive….
class CVPCATransaction {
 public:
    // For a data block.
    explicit CVPCATransaction(uint32_t dataId);
    // For attributes, with the two words for the header; `request` outlives the transaction.
    CVPCATransaction(const uint32_t* callerValues, AttributeRequest* request);
    // Ends a document that is still open, so the port outlives the transaction too.
    ~CVPCATransaction() { EndDocument(); }
    CVPCATransaction(const CVPCATransaction&) = delete;
    CVPCATransaction& operator=(const CVPCATransaction&) = delete;

    // Always true.
    bool Initialise();
    // Each numbers the request anew: the first one carries 1.
    void PrepareDataBlock();
    void PrepareDataBlock(uint32_t dataId);
    void PrepareAttribute();

    // Opens the document and writes the request. The document stays open only on success.
    bool Send(const VpcaPort* port);

    // Each ends the document, whatever comes. While the request header carries result code 29,
    // ReceiveDataBlock goes on reading and joins the blocks; requests carry 0, so one answer is read.
    bool ReceiveDataBlock(const VpcaPort* port, uint8_t* buffer, uint32_t* size);
    bool ReceiveAttribute(const VpcaPort* port, uint8_t* buffer, uint32_t* size);

    // EndDocPort, when a document is open. Keeps the last error.
    void EndDocument();

    VpcaHeader& RequestHeader() { return request_; }
    // Of the last failure.
    const ExchangeReason& Reason() const { return reason_; }

 private:
    void Prepare(uint16_t operation);
    bool CanReceive(const VpcaPort* port, const uint8_t* buffer, const uint32_t* size);
    bool ReadAnswer(const VpcaPort& port, uint32_t size, VpcaResult* result);
    bool Fail(DWORD error, const wchar_t* reason, std::optional<uint32_t> value = {});
    bool FailCodec(VpcaError error, DWORD otherwise, const wchar_t* reason);
    bool FailStatus(uint16_t status);
    template <typename Call>
    bool CallBelow(const wchar_t* failure, bool pendingIsSuccess, Call&& call);

    VpcaHeader request_;
    RequestBody body_;
    FrameBuffer frame_;
    uint32_t dataId_ = 0;
    uint32_t sequence_ = 0;
    std::array<uint8_t, 8216> answer_{};
    // Where the document is open; null when there is none.
    const VpcaPort* document_ = nullptr;
    ExchangeReason reason_;
};

}  // namespace vlm::vpca
