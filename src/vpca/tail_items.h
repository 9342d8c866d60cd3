// Typed items, of which several bodies end in a list: {u16 type, u8 length, value of that length}. The length
// of each type's value is fixed.
#pragma once

#include <cstdint>

#include "vpca/cursor.h"
#include "vpca/errors.h"

namespace vlm::vpca {

// Steps over one item on the wire. `valueBytes` counts the bytes that values may still take (heads are not
// counted); it is reduced by the item's length. On an error nothing is consumed.
VpcaError SkipTailItem(VpcaCursor* cursor, uint32_t* valueBytes);

// Whether the item at the cursor, about to be sent, has a known type and its whole value behind its head; its
// length byte is not looked at. kBadArgument for an unknown type. A value of type 13 is always whole.
VpcaError CheckTailItem(VpcaCursor cursor);

}  // namespace vlm::vpca
