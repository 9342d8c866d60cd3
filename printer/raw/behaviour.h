// What the raw port does with its next connections: answer on the back-channel, misbehave, or simply print.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "printer/shared/fault_slot.h"
#include "printer/shared/name_table.h"

namespace vlm::printer {

enum class FaultMode {
    kRefuse,  // the port is closed: a connect is refused. Cannot be counted, so it lasts until it is cleared
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
    std::uint64_t after = 0;                   // bytes that are read normally first
    std::uint64_t rate = 0;                    // bytes per second, kSlow only
    std::optional<std::uint64_t> connections;  // how many connections; without it, all until it is cleared
};

// One line that says what is wrong with a fault that a user asked for; nothing when it is sound.
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

    void SetAnswer(Answer answer);
    Answer CurrentAnswer() const;

 private:
    mutable std::mutex mutex_;
    Answer answer_;
};

// What one connection was told when it was accepted. A stalled one reads on when its fault is cleared.
struct ConnectionOrders {
    Behaviour::Taken taken;
    Answer answer;
};

}  // namespace vlm::printer
