// The analyzer turns a client's attribute request, as it arrives over the RPC interface, into the codec's
// record.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vpca/bodies.h"

namespace vlm::vpca {

// The client's request: a fixed layout that the RPC interface carries, in the machine's byte order.
struct ClientAttributeRequest {
    static constexpr uint16_t kSlots = 64;

    uint16_t firstWord;
    uint8_t addressKind;
    uint8_t reserved0;
    uint16_t longIdCount;
    uint16_t reserved1;
    uint32_t longIds[kSlots];
    uint16_t shortIdCount;
    uint16_t shortIds[kSlots];
    uint16_t reserved2;
};
static_assert(sizeof(ClientAttributeRequest) == 396 && alignof(ClientAttributeRequest) == 4);
static_assert(offsetof(ClientAttributeRequest, longIds) == 8 &&
              offsetof(ClientAttributeRequest, shortIdCount) == 264);

class BaseAnalyzer {
 public:
    virtual ~BaseAnalyzer() = default;
    // Whether this analyzer can turn requests into frames.
    virtual bool IsSupported() = 0;
};

// Without data; made on the stack for one request.
class CVPCAAnalyzer : public BaseAnalyzer {
 public:
    bool IsSupported() override { return true; }

    // Fills `request`; its arrays belong to it until FreeAttributeRequest. False when an argument is null, a
    // count exceeds the slots or memory runs out; `request` then owns nothing. The client's record has no
    // address, so only address kind 0 can be encoded afterwards.
    bool BuildAttributeRequest(const ClientAttributeRequest* client, AttributeRequest* request);
    // False only for a null record.
    bool FreeAttributeRequest(AttributeRequest* request);
};

}  // namespace vlm::vpca
