// What the raw port does with its next connections: print, answer on the back-channel, misbehave.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "printer/shared/fault_slot.h"
#include "printer/shared/guarded.h"
#include "printer/shared/name_table.h"

namespace vlm::printer {

enum class FaultMode {
    kRefuse,  // connects are refused until it is cleared; cannot be counted
    kStall,   // stops reading
    kSlow,    // reads `rate` bytes per second
    kReset,   // resets the connection
};
inline constexpr NameTable<FaultMode, 4> kFaultModes{{
    {"refuse", FaultMode::kRefuse},
    {"stall", FaultMode::kStall},
    {"slow", FaultMode::kSlow},
    {"reset", FaultMode::kReset},
}};

struct Fault {
    FaultMode mode = FaultMode::kRefuse;
    std::uint64_t after = 0;                   // bytes to read normally first
    std::uint64_t rate = 0;                    // bytes per second, kSlow only
    std::optional<std::uint64_t> connections;  // how many; without a value, all until it is cleared
};

// One line on what is wrong with a fault that a user asked for; nothing when it is valid.
std::optional<std::string> FindFlaw(const Fault& fault);

enum class AnswerTime { kAtOpen, kAfterDocument };
inline constexpr NameTable<AnswerTime, 2> kAnswerTimes{{
    {"open", AnswerTime::kAtOpen},
    {"document", AnswerTime::kAfterDocument},
}};

struct Answer {
    std::string text;  // sent as it is; empty for no answer
    AnswerTime when = AnswerTime::kAfterDocument;
};

class Behaviour : public FaultSlot<Fault> {
 public:
    bool Refusing() const;

    Guarded<Answer> answer;
};

// What applies to one connection, from its accept on. A stalled one reads on when its fault is cleared.
struct ConnectionOrders {
    Behaviour::Taken taken;
    Answer answer;
};

}  // namespace vlm::printer
