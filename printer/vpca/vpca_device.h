// The printer's device-control side: takes VPCA request frames, gives reply frames. docs/vpca.md describes
// the frames, docs/virtual-printer.md what this device holds.
//
// It does not handle connections: the caller splits the stream with FrameSize and sends what Answer returns.
// A fault changes the replies, never how a request is understood. Every operation may be called from any
// thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "printer/shared/fault_slot.h"
#include "printer/shared/recent.h"

namespace vlm::printer {

using Bytes = std::vector<std::uint8_t>;

// What is wrong with the next replies. The members may be combined: `reply` takes the place of all above it,
// `truncate` cuts what came of them.
struct VpcaFault {
    std::optional<std::uint16_t> status;     // with the body only where this status has one
    std::optional<std::uint16_t> operation;  // in the reply's header, as the two below
    std::optional<std::uint16_t> sequence;
    std::optional<std::uint16_t> length;
    std::optional<std::uint32_t> id;  // the data id, or (its low 16 bits) the first attribute's
    std::optional<Bytes> reply;
    std::optional<std::uint64_t> truncate;  // only so many bytes of it are sent; 0 is silence
    std::chrono::milliseconds delay{0};     // before the reply
    bool close = false;                     // end the connection after it
    std::optional<std::uint64_t> requests;  // how many requests; without it, all until the fault is cleared
};

struct VpcaReply {
    Bytes bytes;
    std::chrono::milliseconds delay{0};
    bool close = false;
};

class VpcaDevice : public FaultSlot<VpcaFault, &VpcaFault::requests> {
 public:
    // What every frame begins with, and its fixed part.
    static constexpr std::uint8_t kMagic0 = 0xCD;
    static constexpr std::uint8_t kMagic1 = 0xCA;
    static constexpr std::size_t kHeaderSize = 20;

    // The bytes of the request that begins here, of which the header has to be there; nothing when this is
    // no VPCA header of a known version, so that the end of the frame cannot be told.
    static std::optional<std::size_t> FrameSize(std::span<const std::uint8_t> start);

    // Requires one whole frame. A request that it does not understand or has nothing for is refused.
    VpcaReply Answer(std::span<const std::uint8_t> request);

    std::deque<Bytes> Requests() const { return requests_.All(); }  // the last whole frames, oldest first

 private:
    Recent<Bytes> requests_;
};

}  // namespace vlm::printer
