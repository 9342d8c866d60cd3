// An attribute list, which describes itself or has a schema. Input: context, whether there is a schema and
// its pairs, then the list.
#include "list_check.h"
#include "vpca/header.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    FuzzInput input(data, size);
    const uint16_t context = input.TakeU16();
    const bool selfDescribing = input.TakeU8() % 2 == 0;
    std::vector<SchemaPair> pairs(selfDescribing ? 0 : input.TakeU8());
    for (SchemaPair& pair : pairs)
        pair = {input.TakeU16(), input.TakeU16()};
    const SchemaEntry entries[] = {{1, 0, nullptr},
                                   {context, static_cast<uint16_t>(pairs.size()), pairs.data()}};
    const AttributeSchema schema{2, entries};
    const std::vector<uint8_t> wire = input.TakeBytes(UINT16_MAX);
    const ByteString text{static_cast<uint16_t>(wire.size()), wire.data()};
    AttributeList list;
    const auto decode = [&](AttributeDestination* destination) {
        return DecodeAttributeList(&list, &text, context, selfDescribing ? nullptr : &schema, kVersion10,
                                   destination);
    };
    AttributeDestination destination;
    if (decode(&destination) != VpcaError::kSuccess) {
        FUZZ_CHECK(list.entries == nullptr);
        return 0;
    }
    FUZZ_CHECK(selfDescribing || list.count == entries[context == 1 ? 0 : 1].pairCount);
    CheckListIsIn(list, selfDescribing, {wire.data(), static_cast<uint32_t>(wire.size())});

    // A buffer of the caller's that is one byte short is refused, and the exact one is enough.
    if (destination.capacity == 0) return 0;
    std::vector<uint64_t> room((destination.capacity + 7u) / 8u);
    auto* const buffer = reinterpret_cast<uint8_t*>(room.data());
    AttributeDestination small(buffer, destination.capacity - 1);
    FUZZ_CHECK(decode(&small) == VpcaError::kBufferTooSmall);
    AttributeDestination exact(buffer, destination.capacity);
    FUZZ_CHECK(decode(&exact) == VpcaError::kSuccess);
    return 0;
}
