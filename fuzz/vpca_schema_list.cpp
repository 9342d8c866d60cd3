// An attribute list whose attributes a schema tells. Input: context, count of pairs, the pairs, then the
// list.
#include "list_check.h"
#include "vpca/header.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    FuzzInput input(data, size);
    const uint16_t context = input.TakeU16();
    std::vector<SchemaPair> pairs(input.TakeU8());
    for (SchemaPair& pair : pairs) {
        pair.kind = input.TakeU16();
        pair.id = input.TakeU16();
    }
    const std::vector<uint8_t> wire = input.TakeBytes(UINT16_MAX);
    const ByteString text{static_cast<uint16_t>(wire.size()), wire.data()};
    const SchemaEntry entries[] = {{1, 0, nullptr},
                                   {context, static_cast<uint16_t>(pairs.size()), pairs.data()}};
    const AttributeSchema schema{2, entries};
    AttributeList list;
    AttributeDestination destination;
    if (DecodeAttributeList(&list, &text, context, &schema, kVersion10, &destination) !=
        VpcaError::kSuccess) {
        FUZZ_CHECK(list.entries == nullptr);
        return 0;
    }
    const SchemaEntry& used = context == 1 ? entries[0] : entries[1];
    FUZZ_CHECK(list.count == used.pairCount);
    CheckListIsIn(list, &used, wire.data(), wire.size());
    return 0;
}
