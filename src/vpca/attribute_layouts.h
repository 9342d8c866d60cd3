// The layouts of attribute values, one set of four operations each, as attribute_table.h describes them.
#pragma once

#include "vpca/attribute_table.h"

namespace vlm::vpca {

extern const AttributeDescriptor kOpaqueLayout;
extern const AttributeDescriptor kRaw8Layout;
extern const AttributeDescriptor kRaw28Layout;
extern const AttributeDescriptor kAddressListLayout;
extern const AttributeDescriptor kAddressValueListLayout;
extern const AttributeDescriptor kTextRecordLayout;

}  // namespace vlm::vpca
