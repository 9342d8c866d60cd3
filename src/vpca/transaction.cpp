#include "vpca/transaction.h"

#include <winspool.h>

#include <cstring>

#include "util/handles.h"
#include "util/scope_exit.h"
#include "vpca/attribute_values.h"
#include "vpca/tables.h"

namespace vlm::vpca {

namespace {

constexpr uint8_t kRequestFlags = 4;
constexpr uint16_t kStatusData = 1;
constexpr uint16_t kStatusMore = 29;

constexpr uint32_t kAttributeReadSize = 64;  // no more of such an answer is read
constexpr wchar_t kNoPort[] = L"no port";

// The attributes of which a value is handed out, and how much of it.
constexpr struct {
    uint16_t id;
    uint32_t size;
} kReturnedAttributes[] = {{180, 8}, {2405, 28}};

DWORD CodeOf(bool succeeded, const CVPCATransaction& transaction, ExchangeReason* reason) {
    if (succeeded) return ERROR_SUCCESS;
    if (reason != nullptr) *reason = transaction.Reason();
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
}

}  // namespace

bool CVPCATransaction::Fail(DWORD error, const wchar_t* reason, std::optional<uint32_t> value) {
    reason_ = {reason, value};
    SetLastError(error);
    return false;
}

bool CVPCATransaction::FailCodec(VpcaError error, DWORD otherwise, const wchar_t* reason) {
    return Fail(error == VpcaError::kOutOfMemory ? ERROR_NOT_ENOUGH_MEMORY : otherwise, reason,
                static_cast<uint32_t>(error));
}

bool CVPCATransaction::FailStatus(uint16_t status) {
    return Fail(ERROR_GEN_FAILURE, L"the printer refused with a status", status);
}

// Calls the port below, which may throw and may fail without an error code. A stale 997 of an earlier call
// must not make a failure look like a pending success.
template <typename Call>
bool CVPCATransaction::CallBelow(const wchar_t* failure, bool pendingIsSuccess, Call&& call) {
    SetLastError(ERROR_SUCCESS);
    try {
        if (call()) return true;
    } catch (...) {
        return Fail(ERROR_GEN_FAILURE, L"the port below threw an exception");
    }
    const DWORD error = GetLastError();
    if (pendingIsSuccess && error == ERROR_IO_PENDING) return true;
    return Fail(error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE, failure);
}

CVPCATransaction::CVPCATransaction(uint32_t dataId) : dataId_(dataId) {
    request_.flags = kRequestFlags;
}

CVPCATransaction::CVPCATransaction(const uint32_t* callerValues, AttributeRequest* request) : body_(request) {
    request_.flags = kRequestFlags;
    request_.value1 = callerValues[0];
    request_.value2 = callerValues[1];
}

bool CVPCATransaction::Initialise() {
    return RegisterTables();
}

void CVPCATransaction::Prepare(uint16_t operation) {
    ++sequence_;
    request_.operation = operation;
    request_.sequence = static_cast<uint16_t>(sequence_);
    request_.bodyLength = 0;
    request_.resultCode = 0;
}

void CVPCATransaction::PrepareDataBlock() {
    Prepare(kReadDataBlock);
    body_ = DataBlockRequest{dataId_};
}

void CVPCATransaction::PrepareDataBlock(uint32_t dataId) {
    dataId_ = dataId;
    PrepareDataBlock();
}

void CVPCATransaction::PrepareAttribute() {
    Prepare(kReadAttribute);
}

bool CVPCATransaction::Send(const VpcaPort* port) {
    if (port == nullptr) return Fail(ERROR_INVALID_PARAMETER, kNoPort);
    if (port->lower == nullptr || port->flags == nullptr || port->startDocPort == nullptr ||
        port->writePort == nullptr || port->readPort == nullptr || port->endDocPort == nullptr) {
        return Fail(ERROR_INVALID_HANDLE, L"nothing is below the port");
    }

    DOC_INFO_2W document{};
    port->flags->fetch_or(kPortJobActive);
    const bool started = CallBelow(L"the port below does not start the exchange", false, [&] {
        return port->startDocPort(port->lower, nullptr, 0, 2, reinterpret_cast<LPBYTE>(&document));
    });
    if (!started) {
        port->flags->fetch_and(~kPortJobActive);
        return false;
    }
    document_ = port;

    frame_.Release();
    const VpcaError error = EncodeFrame(&request_, &body_, &frame_);
    if (error != VpcaError::kSuccess) {
        FailCodec(error, ERROR_INVALID_PARAMETER, L"the request cannot be encoded");
        EndDocument();
        return false;
    }
    DWORD written = 0;
    const bool sent = CallBelow(L"the port below does not take the request", true, [&] {
        return port->writePort(port->lower, frame_.bytes, frame_.size, &written);
    });
    if (!sent) EndDocument();
    return sent;
}

bool CVPCATransaction::CanReceive(const VpcaPort* port, const uint8_t* buffer, const uint32_t* size) {
    if (port == nullptr) return Fail(ERROR_INVALID_PARAMETER, kNoPort);
    if (buffer == nullptr || size == nullptr || *size == 0)
        return Fail(ERROR_INSUFFICIENT_BUFFER, L"the caller has no room for the answer");
    return true;
}

// Reads at most `size` bytes and decodes them. `result` may point into the transaction's receive buffer.
bool CVPCATransaction::ReadAnswer(const VpcaPort& port, uint32_t size, VpcaResult* result) {
    answer_.fill(0);
    DWORD received = 0;
    if (!CallBelow(L"the port below brings no answer", true,
                   [&] { return port.readPort(port.lower, answer_.data(), size, &received); }))
        return false;
    if (received > size) return Fail(ERROR_INVALID_DATA, L"the port below returned too many bytes", received);

    VpcaHeader header;
    const VpcaError error = DecodeResponse(&header, result, {answer_.data(), received});
    if (error != VpcaError::kSuccess)
        return FailCodec(error, ERROR_INVALID_DATA, L"the answer cannot be decoded");
    if (header.operation != request_.operation) {
        return Fail(ERROR_INVALID_DATA, L"the answer is for another operation", header.operation);
    }
    return true;
}

bool CVPCATransaction::ReceiveDataBlock(const VpcaPort* port, uint8_t* buffer, uint32_t* size) {
    const ScopeExit endDocument([this] { EndDocument(); });
    if (!CanReceive(port, buffer, size)) return false;

    uint32_t received = 0;
    bool more = false;
    do {
        VpcaResult result;
        if (!ReadAnswer(*port, sizeof answer_, &result)) return false;
        const auto* block = std::get_if<DataBlock>(&result.body);
        if (block == nullptr) return FailStatus(result.status);
        if (block->dataId != dataId_) {
            return Fail(ERROR_INVALID_DATA, L"the answer is for another data block", block->dataId);
        }
        if (result.status != kStatusData) return FailStatus(result.status);
        if (block->size > *size - received) {
            return Fail(ERROR_INSUFFICIENT_BUFFER, L"the data block is larger than the buffer", block->size);
        }
        std::memcpy(buffer + received, block->data, block->size);
        received += block->size;
        more = request_.resultCode == kStatusMore;
        // Without this a printer that sends empty blocks would keep the port for ever.
        if (more && block->size == 0)
            return Fail(ERROR_INVALID_DATA, L"an empty block cannot go on", dataId_);
    } while (more);
    *size = received;
    return true;
}

bool CVPCATransaction::ReceiveAttribute(const VpcaPort* port, uint8_t* buffer, uint32_t* size) {
    const ScopeExit endDocument([this] { EndDocument(); });
    if (!CanReceive(port, buffer, size)) return false;

    VpcaResult result;
    if (!ReadAnswer(*port, kAttributeReadSize, &result)) return false;
    if (result.status != kStatusData) return FailStatus(result.status);
    const auto* answer = std::get_if<AttributeAnswer>(&result.body);
    if (answer == nullptr || answer->list.count == 0) {
        return Fail(ERROR_INVALID_DATA, L"the answer holds no attribute");
    }
    if (answer->list.valueBytes > *size) {
        return Fail(ERROR_INSUFFICIENT_BUFFER, L"the attributes are larger than the buffer",
                    answer->list.valueBytes);
    }
    const AttributeEntry& first = answer->list.entries[0];
    uint32_t copied = 0;
    for (const auto& returned : kReturnedAttributes) {
        if (returned.id == first.id) copied = returned.size;
    }
    // The value is whole: its length was checked when it was decoded, and the buffer holds all values.
    if (copied != 0) std::memcpy(buffer, first.value, copied);
    *size = copied;
    return true;
}

void CVPCATransaction::EndDocument() {
    if (document_ == nullptr) return;
    const LastErrorKeeper keeper;
    const VpcaPort* const port = document_;
    // First of all, so that nothing below can make it happen twice.
    document_ = nullptr;
    // The exchange is over either way; a failure here cannot change its outcome.
    const ExchangeReason reason = reason_;
    CallBelow(L"", false, [&] { return port->endDocPort(port->lower); });
    reason_ = reason;
    port->flags->fetch_and(~kPortJobActive);
}

DWORD ReadDataBlock(const VpcaPort* port, const uint32_t* dataId, uint8_t* buffer, uint32_t* size,
                    ExchangeReason* reason) {
    if (port == nullptr || dataId == nullptr || buffer == nullptr || size == nullptr)
        return ERROR_INVALID_PARAMETER;
    CVPCATransaction transaction(*dataId);
    transaction.Initialise();
    transaction.PrepareDataBlock();
    const bool done = transaction.Send(port) && transaction.ReceiveDataBlock(port, buffer, size);
    return CodeOf(done, transaction, reason);
}

DWORD ReadAttribute(const VpcaPort* port, const uint32_t* callerValues, AttributeRequest* request,
                    uint8_t* buffer, uint32_t* size, ExchangeReason* reason) {
    if (port == nullptr || callerValues == nullptr || request == nullptr || buffer == nullptr ||
        size == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    CVPCATransaction transaction(callerValues, request);
    transaction.Initialise();
    transaction.PrepareAttribute();
    const bool done = transaction.Send(port) && transaction.ReceiveAttribute(port, buffer, size);
    return CodeOf(done, transaction, reason);
}

}  // namespace vlm::vpca
