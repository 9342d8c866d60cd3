// Codes in words, from a list of those that a user may meet.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

namespace vlm::ctl {

struct CodeText {
    std::uint32_t code;
    const char* text;
};

// Null for a code that is not in the list.
inline const char* TextOfCode(std::span<const CodeText> list, std::uint32_t code) {
    const auto found = std::ranges::find(list, code, &CodeText::code);
    return found != list.end() ? found->text : nullptr;
}

}  // namespace vlm::ctl
