#include "tools/vlmctl/exchange/rpc_stub_data.h"

#include <fmt/format.h>

namespace vlm::ctl {

namespace {

constexpr size_t kSlots = 64;     // of either kind of argument
constexpr size_t kAlignment = 4;  // of all numbers here

class Writer {
 public:
    void Byte(std::uint8_t value) { bytes_.push_back(value); }
    void Short(std::uint16_t value) {
        Byte(static_cast<std::uint8_t>(value));
        Byte(static_cast<std::uint8_t>(value >> 8));
    }
    void Long(std::uint32_t value) {
        Short(static_cast<std::uint16_t>(value));
        Short(static_cast<std::uint16_t>(value >> 16));
    }
    // Maximum, offset and actual count, then the text with its NUL.
    void Text(const std::string& text) {
        const auto count = static_cast<std::uint32_t>(text.size() + 1);
        Long(count);
        Long(0);
        Long(count);
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        Byte(0);
        while (bytes_.size() % kAlignment != 0)
            Byte(0);
    }
    std::vector<std::uint8_t> Take() { return std::move(bytes_); }

 private:
    std::vector<std::uint8_t> bytes_;
};

std::uint32_t LongAt(std::span<const std::uint8_t> data, size_t at) {
    return static_cast<std::uint32_t>(data[at]) | static_cast<std::uint32_t>(data[at + 1]) << 8 |
           static_cast<std::uint32_t>(data[at + 2]) << 16 | static_cast<std::uint32_t>(data[at + 3]) << 24;
}

template <typename Number>
Number Slot(const std::vector<Number>& values, size_t index) {
    return index < values.size() ? values[index] : Number{};
}

}  // namespace

std::vector<std::uint8_t> QueryStubData(const std::string& printer, std::uint32_t dataId,
                                        std::uint32_t capacity) {
    Writer writer;
    writer.Text(printer);
    writer.Long(dataId);
    writer.Long(capacity);
    return writer.Take();
}

std::vector<std::uint8_t> CommandStubData(const std::string& printer, const RpcCommand& command,
                                          std::uint32_t capacity) {
    Writer writer;
    writer.Text(printer);
    writer.Long(command.value1);
    writer.Long(command.value2);
    writer.Short(command.word);
    writer.Byte(command.kind);
    writer.Byte(0);
    writer.Short(static_cast<std::uint16_t>(command.longs.size()));
    writer.Short(0);
    for (size_t i = 0; i < kSlots; ++i)
        writer.Long(Slot(command.longs, i));
    writer.Short(static_cast<std::uint16_t>(command.shorts.size()));
    for (size_t i = 0; i < kSlots; ++i)
        writer.Short(Slot(command.shorts, i));
    writer.Short(0);
    writer.Long(capacity);
    return writer.Take();
}

RpcReply ReadReply(std::span<const std::uint8_t> stubData, std::uint32_t capacity) {
    constexpr size_t kCount = 4;  // before the bytes
    constexpr size_t kTail = 8;   // behind them: the size and the procedure's result
    RpcReply reply;
    const auto refuse = [&](std::string problem) {
        reply.problem = std::move(problem);
        return reply;
    };
    if (stubData.size() < kCount + kTail)
        return refuse(fmt::format("a reply of only {} bytes", stubData.size()));
    const std::uint32_t count = LongAt(stubData, 0);
    if (count > capacity)
        return refuse(fmt::format("a reply that claims {} bytes, the limit is {}", count, capacity));
    const size_t end = kCount + (size_t{count} + kAlignment - 1) / kAlignment * kAlignment;
    if (stubData.size() < end + kTail)
        return refuse(fmt::format("a reply that claims {} bytes and ends before that", count));
    // A transport may round the length up.
    if (stubData.size() - end - kTail >= kTail)
        return refuse(fmt::format("a reply of {} bytes with {} more after its end", count,
                                  stubData.size() - end - kTail));
    const std::uint32_t size = LongAt(stubData, end);
    reply.result = LongAt(stubData, end + 4);
    if (size != count || (reply.result != 0 && count != 0))
        return refuse(
            fmt::format("a contradictory reply: {} bytes, size {}, result {}", count, size, reply.result));
    const auto bytes = stubData.subspan(kCount, count);
    reply.bytes.assign(bytes.begin(), bytes.end());
    return reply;
}

}  // namespace vlm::ctl
