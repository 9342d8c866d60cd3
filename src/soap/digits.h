// Numbers in what a printer or a port monitor writes. Plain standard C++.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vlm {

// A number of ASCII digits and nothing else; none for another text, and for a number above `most`,
// which fits into 63 bits.
inline std::optional<std::uint64_t> ParseDigits(std::wstring_view text, std::uint64_t most) {
    if (text.empty()) return std::nullopt;
    std::uint64_t number = 0;
    for (const wchar_t c : text) {
        if (c < L'0' || c > L'9' || number > most / 10) return std::nullopt;
        number = number * 10 + static_cast<std::uint64_t>(c - L'0');
    }
    return number <= most ? std::optional(number) : std::nullopt;
}

}  // namespace vlm
