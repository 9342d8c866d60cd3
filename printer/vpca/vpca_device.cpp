#include "printer/vpca/vpca_device.h"

#include <algorithm>
#include <array>
#include <utility>

#include "printer/shared/say.h"

namespace vlm::printer {
namespace {

using Octets = std::span<const std::uint8_t>;

constexpr std::uint8_t kVersion = 0x10;
constexpr std::uint8_t kReplyFlags = 0x05;

constexpr std::uint16_t kReadDataBlock = 0x31;
constexpr std::uint16_t kReadAttributes = 0x66;

constexpr std::uint16_t kRefused = 0;
constexpr std::uint16_t kSuccess = 1;
constexpr std::uint16_t kRefusedForNow = 29;
// The statuses that let both of this device's operations have a body.
constexpr std::array<std::uint16_t, 4> kStatusesWithBody{kSuccess, kRefusedForNow, 33, 34};

constexpr std::size_t kOperationAt = 4;
constexpr std::size_t kSequenceAt = 6;
constexpr std::size_t kLengthAt = 8;
constexpr std::size_t kBlockIdAt = VpcaDevice::kHeaderSize;
constexpr std::size_t kAttributeCountAt = VpcaDevice::kHeaderSize;
constexpr std::size_t kFirstAttributeAt = kAttributeCountAt + 1;

std::uint32_t Number(Octets bytes) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : bytes)
        number = number << 8 | byte;
    return number;
}

std::uint16_t U16(Octets bytes, std::size_t at) {
    return static_cast<std::uint16_t>(Number(bytes.subspan(at, 2)));
}

void SetU16(Bytes& bytes, std::size_t at, std::size_t value) {
    bytes[at] = static_cast<std::uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<std::uint8_t>(value);
}

void AppendU16(Bytes& bytes, std::size_t value) {
    bytes.resize(bytes.size() + 2);
    SetU16(bytes, bytes.size() - 2, value);
}

void AppendU32(Bytes& bytes, std::uint32_t value) {
    AppendU16(bytes, value >> 16);
    AppendU16(bytes, value);
}

void Append(Bytes& bytes, Octets more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// A request's body, read from front to end. After a read that had too little, every read gives nothing.
class BodyReader {
 public:
    explicit BodyReader(Octets bytes) : left_(bytes) {}

    Octets Take(std::size_t count) {
        if (count > left_.size()) failed_ = true;
        if (failed_) return {};
        const Octets taken = left_.first(count);
        left_ = left_.subspan(count);
        return taken;
    }
    std::uint32_t TakeNumber(std::size_t size) { return Number(Take(size)); }
    bool ReadAll() const { return !failed_ && left_.empty(); }

 private:
    Octets left_;
    bool failed_ = false;
};

struct DataBlock {
    std::uint32_t id;
    std::size_t size;  // of a pattern: the byte at i is i mod 251, so that a shifted piece shows
};
// Nothing; the most that one read of the monitor takes; one byte more; more than field 5 can hold.
constexpr std::array<DataBlock, 4> kPatternBlocks{{{1, 0}, {2, 8192}, {3, 8193}, {4, 70'000}}};
constexpr std::uint32_t kPatternPeriod = 251;
constexpr std::uint32_t kSmallBlock = 0x11223344;
constexpr std::array<std::uint8_t, 4> kSmallBlockData{0xAA, 0xBB, 0xCC, 0xDD};
constexpr std::uint32_t kBusyBlock = 29;  // refused with the status of its number

std::optional<Bytes> FindBlock(std::uint32_t id) {
    if (id == kSmallBlock) return Bytes(kSmallBlockData.begin(), kSmallBlockData.end());
    const auto* const found = std::find_if(kPatternBlocks.begin(), kPatternBlocks.end(),
                                           [id](const DataBlock& block) { return block.id == id; });
    if (found == kPatternBlocks.end()) return std::nullopt;
    Bytes data(found->size);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::uint8_t>(i % kPatternPeriod);
    return data;
}

struct Attribute {
    std::uint16_t id;
    std::uint8_t size;
    std::array<std::uint8_t, 32> value;
};
constexpr std::array kAttributes{
    Attribute{2, 4, {0xAA, 0xBB, 0xCC, 0xDD}},
    Attribute{144, 5, {1, 10, 0, 0, 1}},
    Attribute{180, 8, {1, 2, 3, 4, 5, 6, 7, 8}},
    Attribute{1080, 1, {0}},
    Attribute{2112, 21, {0xC0, 0, 2, 5, 3, 'a', 'b', 'c', 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}},
    Attribute{2405, 28, {0x24, 0x05, 2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13,
                         14,   15,   16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27}},
    Attribute{6012, 17, {2, 0xC0, 0, 2, 1, 0, 0, 1, 2, 0xC0, 0, 2, 2, 0, 0, 3, 4}},
    // One that newer devices than the published list have.
    Attribute{7000, 5, {1, 2, 3, 4, 5}},
};

const Attribute* FindAttribute(std::uint16_t id) {
    const auto* const found = std::find_if(kAttributes.begin(), kAttributes.end(),
                                           [id](const Attribute& attribute) { return attribute.id == id; });
    return found == kAttributes.end() ? nullptr : found;
}

struct Outcome {
    std::uint16_t status = kRefused;
    Bytes body;
};

Outcome AnswerDataBlock(Octets body) {
    BodyReader reader(body);
    const std::uint32_t id = reader.TakeNumber(4);
    if (!reader.ReadAll()) return {};
    auto data = FindBlock(id);
    if (!data && id != kBusyBlock) return {};
    Outcome outcome{data ? kSuccess : kRefusedForNow, {}};
    AppendU32(outcome.body, id);
    if (data) Append(outcome.body, *data);
    return outcome;
}

// The attributes in the order in which they are asked for, without those that the device does not have. What
// the first word, the address and the 32-bit ids are for is not known: they only have to be well formed.
Outcome AnswerAttributes(Octets body) {
    constexpr std::uint32_t kLastAddressKind = 2;
    constexpr std::uint32_t kAddressSize = 4;
    constexpr std::size_t kMostAttributes = 0xFF;  // the count is a byte

    BodyReader reader(body);
    reader.Take(2);
    const std::uint32_t addressKind = reader.TakeNumber(1);
    const std::uint32_t addressSize = reader.TakeNumber(1);
    if (addressKind > kLastAddressKind || addressSize != (addressKind == 0 ? 0 : kAddressSize)) return {};
    reader.Take(addressSize);
    reader.Take(std::size_t{4} * reader.TakeNumber(2));
    const Octets ids = reader.Take(std::size_t{2} * reader.TakeNumber(2));
    if (!reader.ReadAll()) return {};

    Outcome outcome{kSuccess, {0}};
    std::size_t count = 0;
    for (std::size_t at = 0; at < ids.size(); at += 2) {
        const Attribute* const attribute = FindAttribute(U16(ids, at));
        if (attribute == nullptr) continue;
        if (++count > kMostAttributes) return {};
        AppendU16(outcome.body, attribute->id);
        outcome.body.push_back(attribute->size);
        Append(outcome.body, Octets(attribute->value).first(attribute->size));
    }
    outcome.body[0] = static_cast<std::uint8_t>(count);
    return outcome;
}

Outcome Carry(Octets request) {
    const Octets body = request.subspan(VpcaDevice::kHeaderSize);
    switch (U16(request, kOperationAt)) {
        case kReadDataBlock:
            return AnswerDataBlock(body);
        case kReadAttributes:
            return AnswerAttributes(body);
        default:
            return {};
    }
}

Bytes MakeReply(Octets request, const Outcome& outcome) {
    Bytes reply{VpcaDevice::kMagic0, VpcaDevice::kMagic1, kVersion, kReplyFlags};
    AppendU16(reply, U16(request, kOperationAt));
    AppendU16(reply, U16(request, kSequenceAt));
    AppendU16(reply, outcome.body.size());  // of a long data block the low 16 bits, which hosts ignore
    AppendU32(reply, 0);
    AppendU32(reply, 0);
    AppendU16(reply, outcome.status);
    Append(reply, outcome.body);
    return reply;
}

bool HasBody(std::uint16_t status) {
    return std::find(kStatusesWithBody.begin(), kStatusesWithBody.end(), status) != kStatusesWithBody.end();
}

void SetId(Bytes& reply, std::uint32_t id) {
    const bool isBlock = U16(reply, kOperationAt) == kReadDataBlock;
    if (isBlock && reply.size() >= kBlockIdAt + 4) {
        SetU16(reply, kBlockIdAt, id >> 16);
        SetU16(reply, kBlockIdAt + 2, id);
    } else if (!isBlock && reply.size() > kFirstAttributeAt) {
        SetU16(reply, kFirstAttributeAt, id);
    }
}

}  // namespace

std::optional<std::size_t> VpcaDevice::FrameSize(Octets start) {
    if (start[0] != kMagic0 || start[1] != kMagic1 || start[2] != kVersion) return std::nullopt;
    return kHeaderSize + U16(start, kLengthAt);
}

VpcaReply VpcaDevice::Answer(Octets request) {
    requests_.Add({request.begin(), request.end()});
    const auto fault = TakeFault().fault;
    Outcome outcome = Carry(request);
    if (fault && fault->status) {
        outcome.status = *fault->status;
        if (!HasBody(outcome.status)) outcome.body.clear();
    }
    VpcaReply reply{MakeReply(request, outcome)};
    if (fault) {
        if (fault->id) SetId(reply.bytes, *fault->id);
        if (fault->operation) SetU16(reply.bytes, kOperationAt, *fault->operation);
        if (fault->sequence) SetU16(reply.bytes, kSequenceAt, *fault->sequence);
        if (fault->length) SetU16(reply.bytes, kLengthAt, *fault->length);
        if (fault->reply) reply.bytes = *fault->reply;
        if (fault->truncate && *fault->truncate < reply.bytes.size()) reply.bytes.resize(*fault->truncate);
        reply.delay = fault->delay;
        reply.close = fault->close;
    }
    Say("device: operation {}, {} bytes in, status {}, {} bytes out{}", U16(request, kOperationAt),
        request.size(), outcome.status, reply.bytes.size(), fault ? ", with a fault" : "");
    return reply;
}

}  // namespace vlm::printer
