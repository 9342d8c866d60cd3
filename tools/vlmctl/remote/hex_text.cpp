#include "tools/vlmctl/remote/hex_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "tools/vlmctl/console/command.h"

namespace vlm::ctl {

std::string HexText(std::span<const std::uint8_t> bytes) {
    return fmt::format("{:02X}", fmt::join(bytes, " "));
}

std::string HexDump(std::span<const std::uint8_t> bytes) {
    constexpr size_t kPerLine = 16;
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += kPerLine) {
        const auto line = bytes.subspan(at, std::min(kPerLine, bytes.size() - at));
        std::string ascii;
        for (const std::uint8_t byte : line)
            ascii += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
        text += fmt::format("{}{:6}  {:<47}  {}", at == 0 ? "" : "\n", at, HexText(line), ascii);
    }
    return text;
}

std::vector<std::uint8_t> ParseHex(std::string_view text) {
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (std::isspace(static_cast<unsigned char>(c)) != 0 || c == ',') continue;
        if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X') &&
            digits.size() % 2 == 0) {
            ++i;
            continue;
        }
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0)
            throw CommandError(fmt::format("'{}' at character {} is not a hex digit", c, i + 1), kWrongUsage);
        digits += c;
    }
    if (digits.size() % 2 != 0) throw CommandError("an odd number of hex digits", kWrongUsage);
    std::vector<std::uint8_t> bytes(digits.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    return bytes;
}

std::uint32_t ParseNumber(const std::string& text, const std::string& what, std::uint32_t most) {
    size_t used = 0;
    unsigned long long value = 0;
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    try {
        if (!text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) != 0)
            value = std::stoull(text, &used, hex ? 16 : 10);
    } catch (const std::out_of_range&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || value > most)
        throw CommandError(fmt::format("{} '{}' is not a number from 0 to {}", what, text, most),
                           kWrongUsage);
    return static_cast<std::uint32_t>(value);
}

}  // namespace vlm::ctl
