// A self-describing attribute list: a context byte, then the list.
#include "list_check.h"
#include "vpca/header.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    FuzzInput input(data, size);
    const uint16_t context = input.TakeU8() % 2 == 0 ? kLongListContext : uint16_t{1};
    const std::vector<uint8_t> wire = input.TakeBytes(UINT16_MAX);
    const ByteString text{static_cast<uint16_t>(wire.size()), wire.data()};
    AttributeList list;
    AttributeDestination destination;
    if (DecodeAttributeList(&list, &text, context, nullptr, kVersion10, &destination) !=
        VpcaError::kSuccess) {
        FUZZ_CHECK(list.entries == nullptr);
        return 0;
    }
    CheckListIsIn(list, nullptr, wire.data(), wire.size());

    // A buffer of the caller's that is one byte short is refused, and the exact one is enough.
    if (destination.capacity == 0) return 0;
    std::vector<uint64_t> room((destination.capacity + 7u) / 8u);
    auto* const buffer = reinterpret_cast<uint8_t*>(room.data());
    AttributeDestination small(buffer, destination.capacity - 1);
    FUZZ_CHECK(DecodeAttributeList(&list, &text, context, nullptr, kVersion10, &small) ==
               VpcaError::kBufferTooSmall);
    AttributeDestination exact(buffer, destination.capacity);
    FUZZ_CHECK(DecodeAttributeList(&list, &text, context, nullptr, kVersion10, &exact) ==
               VpcaError::kSuccess);
    return 0;
}
