// What a printer's answer is made of, in the numbers that tell how long a filter may search in it. Plain
// standard C++.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vlm {

struct AnswerShape {
    struct Elements {
        size_t count = 0;
        // Added up over all of them: what stands in nested elements counts for each.
        size_t text = 0;   // characters below
        size_t nodes = 0;  // nodes below
    };

    size_t nodes = 0;          // elements, attributes and texts
    size_t attributes = 0;     // namespace declarations among them
    size_t depth = 0;          // of the deepest element; the root's is 1
    size_t widest = 0;         // the most child nodes of one element
    size_t text = 0;           // characters of the whole document,
    size_t attributeText = 0;  // and of its tags with their attributes
    Elements all;
    std::unordered_map<std::string, Elements> byName;  // UTF-8, without prefix
};

// `document` is well-formed XML in UTF-8.
AnswerShape ShapeOf(std::string_view document);

}  // namespace vlm
