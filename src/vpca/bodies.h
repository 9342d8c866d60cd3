// What stands behind the header: the bodies of requests before they are encoded, and those of responses
// decoded.
//
// Two operations have a known body each way. The bodies of all others are carried as they are.
#pragma once

#include <cstdint>
#include <variant>

#include "vpca/attribute_list.h"

namespace vlm::vpca {

inline constexpr uint16_t kReadDataBlock = 0x31;
inline constexpr uint16_t kReadAttribute = 0x66;

// Bytes that are carried as they are. Not owned: in a response they lie in the frame.
struct OpaqueBody {
    const uint8_t* bytes = nullptr;
    uint32_t size = 0;
};

struct DataBlockRequest {
    uint32_t dataId = 0;
};

// A record of the caller's, who owns the arrays and keeps them until the request is encoded.
struct AttributeRequest {
    uint16_t firstWord = 0;
    // 0: no address; 1 and 2: four bytes of address.
    uint8_t addressKind = 0;
    // Set by the encoder.
    uint8_t addressLength = 0;
    // Four bytes in wire order.
    const uint32_t* address = nullptr;
    uint16_t longIdCount = 0;
    uint32_t* longIds = nullptr;
    uint16_t shortIdCount = 0;
    uint16_t* shortIds = nullptr;
};

using RequestBody = std::variant<OpaqueBody, DataBlockRequest, AttributeRequest*>;

// The data lies in the frame that was decoded.
struct DataBlock {
    uint32_t dataId = 0;
    const uint8_t* data = nullptr;
    uint32_t size = 0;
};

// A decoded list with the memory that it lies in.
struct AttributeAnswer {
    AttributeList list;
    AttributeDestination destination;
};

// A decoded response. The body is std::monostate when the status let none be decoded.
struct VpcaResult {
    uint16_t status = 0;
    std::variant<std::monostate, OpaqueBody, DataBlock, AttributeAnswer> body;
};

}  // namespace vlm::vpca
