// What a namespace-aware parser says of an element. Plain standard C++; views into the parser's memory.
#pragma once

#include <string_view>
#include <vector>

namespace vlm {

struct XmlName {
    std::wstring_view uri;  // empty: no namespace
    std::wstring_view local;
    std::wstring_view qualified = {};  // as written, with its prefix; only where the parser tells it
};

struct XmlAttribute {
    XmlName name;
    std::wstring_view value;
};

using XmlAttributes = std::vector<XmlAttribute>;

}  // namespace vlm
