// The operations of the protocol, with the encoder and decoder of their bodies. There are two tables: FU,
// which encodes requests and decodes responses, and FP, the other side's view, whose bodies are all opaque.
#pragma once

#include "vpca/bodies.h"
#include "vpca/frame.h"

namespace vlm::vpca {

// Encodes a whole frame with `body` behind `header`, whose body length it sets. kBadArgument when `body` is
// not of the operation's kind.
using BodyEncoder = VpcaError (*)(VpcaHeader* header, const RequestBody& body, FrameBuffer* destination);
// `body` holds the body and nothing else; `schema` may be null.
using BodyDecoder = VpcaError (*)(const VpcaHeader& header, VpcaResult* result, VpcaCursor body,
                                  const AttributeSchema* schema);

struct OperationRow {
    // Null when the operation only goes the other way in this table.
    BodyEncoder encode = nullptr;
    BodyDecoder decode = nullptr;
};

// Null for an unknown code, and for every code before RegisterTables().
const OperationRow* FindOperation(VpcaTable table, uint16_t code);

}  // namespace vlm::vpca
