// Bytes as people read and write them.
#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::ctl {

// "CD CA 10"
std::string HexText(std::span<const std::uint8_t> bytes);
// Lines of offset, up to 16 bytes, and their ASCII.
std::string HexDump(std::span<const std::uint8_t> bytes);
// Pairs of hex digits; blanks, line ends and a "0x" before a pair are skipped. Throws CommandError.
std::vector<std::uint8_t> ParseHex(std::string_view text);
// "49", "0x31" (a leading 0 alone means nothing); throws CommandError with `what` in it when the text is no
// number up to `most`.
std::uint32_t ParseNumber(const std::string& text, const std::string& what, std::uint32_t most = 0xFFFFFFFF);
// The same for each of the texts, up to the largest Number.
template <typename Number>
std::vector<Number> ParseNumbers(const std::vector<std::string>& texts, const std::string& what) {
    std::vector<Number> numbers;
    numbers.reserve(texts.size());
    for (const std::string& text : texts)
        numbers.push_back(static_cast<Number>(ParseNumber(text, what, std::numeric_limits<Number>::max())));
    return numbers;
}

}  // namespace vlm::ctl
