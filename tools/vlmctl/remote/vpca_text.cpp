#include "tools/vlmctl/remote/vpca_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/vlmctl/remote/hex_text.h"
#include "vpca/attribute_table.h"
#include "vpca/frame.h"
#include "vpca/operations.h"

namespace vlm::ctl {

namespace {

using namespace vpca;

constexpr size_t kHeaderSize = 20;

// Reads the frame front to back; a problem ends it.
class Reader {
 public:
    explicit Reader(std::span<const std::uint8_t> frame) : frame_(frame), end_(frame.size()) {}

    FrameText Read() {
        static_cast<void>(ReadHeader() && ReadBody() && CheckWithCodec());
        return std::move(text_);
    }

 private:
    template <typename... Arguments>
    void Field(size_t offset, std::string name, fmt::format_string<Arguments...> format,
               Arguments&&... arguments) {
        text_.fields.push_back(
            {offset, std::move(name), fmt::format(format, std::forward<Arguments>(arguments)...)});
    }
    template <typename... Arguments>
    bool Bad(size_t offset, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        text_.problem = fmt::format("at offset {}: ", offset) +
                        fmt::format(format, std::forward<Arguments>(arguments)...);
        return false;
    }
    std::uint32_t Number(size_t offset, size_t width) const {
        std::uint32_t value = 0;
        for (size_t i = 0; i < width; ++i)
            value = value << 8 | frame_[offset + i];
        return value;
    }
    bool Has(size_t offset, size_t size, const char* what) {
        if (offset <= end_ && size <= end_ - offset) return true;
        return Bad(offset, "{} needs {} bytes, there are {}", what, size, end_ - std::min(offset, end_));
    }

    bool ReadHeader() {
        if (!Has(0, kHeaderSize, "the header")) return false;
        const std::uint32_t magic = Number(0, 2);
        if (magic != kMagic) return Bad(0, "the magic is {:04X} instead of {:04X}", magic, kMagic);
        if (FindVersion(frame_[2]) == nullptr) return Bad(2, "the version {:#04x} is unknown", frame_[2]);
        response_ = (frame_[3] & kFlagResultCode) != 0;
        operation_ = static_cast<std::uint16_t>(Number(4, 2));
        status_ = static_cast<std::uint16_t>(Number(18, 2));
        Field(0, "magic", "{:04X}", magic);
        Field(2, "version", "{:#04x}", frame_[2]);
        Field(3, "flags", "{:#04x} ({})", frame_[3], response_ ? "a response" : "a request");
        Field(4, "operation", "{:#x} ({})", operation_, OperationName());
        Field(6, "sequence", "{}", Number(6, 2));
        Field(8, "body length", "{}", Number(8, 2));
        Field(10, "value 1", "{:#010x}", Number(10, 4));
        Field(14, "value 2", "{:#010x}", Number(14, 4));
        if (response_) Field(18, "status", "{}", status_);
        if (FindOperation(VpcaTable::kFu, operation_) == nullptr)
            return Bad(4, "the operation {:#x} is unknown", operation_);
        return true;
    }
    const char* OperationName() const {
        return operation_ == kReadDataBlock   ? "read a data block"
               : operation_ == kReadAttribute ? "read attributes"
                                              : "opaque";
    }

    bool ReadBody() {
        std::uint16_t status = status_;
        if (response_ && CheckResult(&status, operation_) == BodyDecision::kStop) {
            Field(kHeaderSize, "body", "none with this status");
            return true;
        }
        // A data block reaches to the end of its frame.
        if (!response_ || operation_ != kReadDataBlock) {
            const std::uint32_t length = Number(8, 2);
            if (length > frame_.size() - kHeaderSize)
                return Bad(8, "the body length {} exceeds the {} bytes after the header", length,
                           frame_.size() - kHeaderSize);
            end_ = kHeaderSize + length;
        }
        if (operation_ == kReadDataBlock) return ReadDataBlockBody();
        if (operation_ == kReadAttribute) return response_ ? ReadAttributes() : ReadAttributeRequest();
        Field(kHeaderSize, "body", "{}", HexText(frame_.subspan(kHeaderSize, end_ - kHeaderSize)));
        return true;
    }
    bool ReadDataBlockBody() {
        if (!Has(kHeaderSize, 4, "the data id")) return false;
        Field(kHeaderSize, "data id", "{:#010x}", Number(kHeaderSize, 4));
        const size_t data = kHeaderSize + 4;
        if (response_)
            Field(data, "data", "{} bytes: {}", end_ - data, HexText(frame_.subspan(data, end_ - data)));
        return true;
    }
    bool ReadAttributeRequest() {
        size_t at = kHeaderSize;
        if (!Has(at, 4, "the request")) return false;
        Field(at, "first word", "{:#06x}", Number(at, 2));
        const size_t addressLength = frame_[at + 3];
        Field(at + 2, "address", "kind {}, {} bytes", frame_[at + 2], addressLength);
        if (addressLength != (frame_[at + 2] == 0 ? 0U : 4U))
            return Bad(at + 3, "an address of kind {} does not have {} bytes", frame_[at + 2], addressLength);
        at += 4 + addressLength;
        for (const size_t width : {size_t{4}, size_t{2}}) {
            if (!Has(at, 2, "a count of ids")) return false;
            const size_t count = Number(at, 2);
            Field(at, fmt::format("{}-bit ids", width * 8), "{}", count);
            at += 2;
            if (!Has(at, count * width, "the ids")) return false;
            for (size_t i = 0; i < count; ++i, at += width)
                Field(at, "  id", "{}", Number(at, width));
        }
        return true;
    }
    bool ReadAttributes() {
        size_t at = kHeaderSize;
        if (!Has(at, 1, "the count of attributes")) return false;
        const size_t count = frame_[at];
        Field(at++, "attributes", "{}", count);
        for (size_t i = 1; i <= count; ++i) {
            if (!Has(at, 3, fmt::format("the header of attribute {} of {}", i, count).c_str())) return false;
            const auto id = static_cast<std::uint16_t>(Number(at, 2));
            const size_t length = frame_[at + 2];
            const AttributeDescriptor& row = DescribeAttribute(id);
            const size_t value = at + 3;
            if (!Has(value, length, fmt::format("attribute {}", id).c_str())) return false;
            size_t size = length;
            if (!row.opaque) {
                // The value tells its length itself, the byte before it only the low eight bits of that.
                const auto left = static_cast<std::uint32_t>(end_ - value);
                size = row.measure(frame_.data() + value, left, true).wireSize;
                if (size == 0 || static_cast<std::uint8_t>(size) != length)
                    return Bad(value, "{} bytes are not a valid value of attribute {}",
                               size == 0 ? left : length, id);
            }
            Field(at, fmt::format("  {}", id), "{} bytes{}: {}", size,
                  !row.known   ? ", unknown"
                  : row.opaque ? ", opaque"
                               : "",
                  HexText(frame_.subspan(value, size)));
            at = value + size;
        }
        return true;
    }
    // The reader above tells where; the codec has the last word.
    bool CheckWithCodec() {
        if (!response_) return true;
        VpcaHeader header;
        VpcaResult result;
        const VpcaError error =
            DecodeResponse(&header, &result, {frame_.data(), static_cast<std::uint32_t>(frame_.size())});
        return error == VpcaError::kSuccess || Bad(kHeaderSize, "the codec rejects the body with error {}",
                                                   static_cast<std::uint32_t>(error));
    }

    std::span<const std::uint8_t> frame_;
    size_t end_;  // of the body, once that is known
    bool response_ = false;
    std::uint16_t operation_ = 0;
    std::uint16_t status_ = 0;
    FrameText text_;
};

}  // namespace

FrameText DescribeFrame(std::span<const std::uint8_t> frame) {
    RegisterTables();
    return Reader(frame).Read();
}

}  // namespace vlm::ctl
