// A response as it comes from the printer.
#include "list_check.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

using namespace vlm::vpca;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RegisterTables();
    VpcaHeader header;
    VpcaResult result;
    const VpcaError error = DecodeResponse(&header, &result, {data, static_cast<uint32_t>(size)});
    if (error != VpcaError::kSuccess) return 0;

    if (const auto* block = std::get_if<DataBlock>(&result.body)) {
        FUZZ_CHECK(block->data == data + 24 && block->size == size - 24);
    } else if (const auto* opaque = std::get_if<OpaqueBody>(&result.body)) {
        FUZZ_CHECK(opaque->bytes == data + 20 && opaque->size == header.bodyLength &&
                   opaque->size <= size - 20);
    } else if (const auto* answer = std::get_if<AttributeAnswer>(&result.body)) {
        CheckListIsIn(answer->list, nullptr, data + 20, header.bodyLength);
    }
    return 0;
}
