// What the raw port does with its next connections: answer on the back-channel, misbehave, or simply print.
//
// A fault is taken by connections as they are accepted, at most as many as it says; the connection keeps it
// until it ends or the fault is cleared. A new fault replaces what was left of the one before for connections
// to come and leaves those under way alone; clearing also releases those under way (a stalled one reads on).
// Every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace vlm::printer {

enum class FaultMode {
    kRefuse,  // the port is closed: a connect is refused. Cannot be counted, so it lasts until it is cleared
    kStall,   // stops reading
    kSlow,    // reads `rate` bytes per second
    kReset,   // resets the connection
};

struct Fault {
    FaultMode mode = FaultMode::kRefuse;
    std::uint64_t after = 0;                   // bytes that are read normally first
    std::uint64_t rate = 0;                    // bytes per second, kSlow only
    std::optional<std::uint64_t> connections;  // how many connections; without it, all until it is cleared
};

// One line that says what is wrong with a fault that a user asked for; nothing when it is sound.
std::optional<std::string> FindFlaw(const Fault& fault);

const char* ToString(FaultMode mode);
std::optional<FaultMode> ParseFaultMode(const std::string& text);

enum class AnswerTime { kAtOpen, kAfterDocument };

struct Answer {
    std::string text;  // sent as it is; empty for no answer
    AnswerTime when = AnswerTime::kAfterDocument;
};

const char* ToString(AnswerTime when);
std::optional<AnswerTime> ParseAnswerTime(const std::string& text);

// What one connection was told when it was accepted.
struct ConnectionOrders {
    std::optional<Fault> fault;
    std::uint64_t faultEra = 0;  // for FaultHolds
    Answer answer;
};

class Behaviour {
 public:
    void SetFault(const Fault& fault);  // requires a sound fault
    void ClearFault();
    std::optional<Fault> CurrentFault() const;  // `connections` is what is left of it
    bool Refusing() const;

    void SetAnswer(Answer answer);
    Answer CurrentAnswer() const;

    ConnectionOrders OrdersForNextConnection();
    // False once the fault of these orders has been cleared.
    bool FaultHolds(const ConnectionOrders& orders) const;

 private:
    mutable std::mutex mutex_;
    std::optional<Fault> fault_;
    std::uint64_t faultEra_ = 0;  // counts the times that faults were cleared
    Answer answer_;
};

}  // namespace vlm::printer
