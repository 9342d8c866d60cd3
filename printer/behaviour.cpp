#include "behaviour.h"

#include <array>
#include <utility>

namespace vlm::printer {
namespace {

constexpr std::array<std::pair<const char*, FaultMode>, 4> kFaultModes{{
    {"refuse", FaultMode::kRefuse},
    {"stall", FaultMode::kStall},
    {"slow", FaultMode::kSlow},
    {"reset", FaultMode::kReset},
}};
constexpr std::array<std::pair<const char*, AnswerTime>, 2> kAnswerTimes{{
    {"open", AnswerTime::kAtOpen},
    {"document", AnswerTime::kAfterDocument},
}};

template <typename Table, typename Value>
const char* NameOf(const Table& table, Value value) {
    for (const auto& [name, entry] : table)
        if (entry == value) return name;
    return "";
}

template <typename Value, std::size_t N>
std::optional<Value> ValueOf(const std::array<std::pair<const char*, Value>, N>& table,
                             const std::string& text) {
    for (const auto& [name, entry] : table)
        if (text == name) return entry;
    return std::nullopt;
}

}  // namespace

const char* ToString(FaultMode mode) {
    return NameOf(kFaultModes, mode);
}
std::optional<FaultMode> ParseFaultMode(const std::string& text) {
    return ValueOf(kFaultModes, text);
}
const char* ToString(AnswerTime when) {
    return NameOf(kAnswerTimes, when);
}
std::optional<AnswerTime> ParseAnswerTime(const std::string& text) {
    return ValueOf(kAnswerTimes, text);
}

std::optional<std::string> FindFlaw(const Fault& fault) {
    if (fault.mode == FaultMode::kRefuse && (fault.after != 0 || fault.connections))
        return "a refused connection cannot be counted: refuse takes neither 'after' nor 'connections'";
    if (fault.mode == FaultMode::kSlow && fault.rate == 0)
        return "slow needs a 'rate' of at least 1 byte per second";
    if (fault.mode != FaultMode::kSlow && fault.rate != 0) return "only slow takes a 'rate'";
    if (fault.connections && *fault.connections == 0) return "'connections' must be at least 1";
    return std::nullopt;
}

void Behaviour::SetFault(const Fault& fault) {
    const std::scoped_lock lock(mutex_);
    fault_ = fault;
}

void Behaviour::ClearFault() {
    const std::scoped_lock lock(mutex_);
    fault_.reset();
    ++faultEra_;
}

std::optional<Fault> Behaviour::CurrentFault() const {
    const std::scoped_lock lock(mutex_);
    return fault_;
}

bool Behaviour::Refusing() const {
    const std::scoped_lock lock(mutex_);
    return fault_ && fault_->mode == FaultMode::kRefuse;
}

void Behaviour::SetAnswer(Answer answer) {
    const std::scoped_lock lock(mutex_);
    answer_ = std::move(answer);
}

Answer Behaviour::CurrentAnswer() const {
    const std::scoped_lock lock(mutex_);
    return answer_;
}

ConnectionOrders Behaviour::OrdersForNextConnection() {
    const std::scoped_lock lock(mutex_);
    ConnectionOrders orders{fault_, faultEra_, answer_};
    if (fault_ && fault_->connections && --*fault_->connections == 0) fault_.reset();
    return orders;
}

bool Behaviour::FaultHolds(const ConnectionOrders& orders) const {
    const std::scoped_lock lock(mutex_);
    return orders.faultEra == faultEra_;
}

}  // namespace vlm::printer
