// UTF-8 of the tests and fuzzers; wchar_t holds a whole character on the build machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vlm {

// Takes any bytes: one that begins no character becomes the character of its number. Surrogates pass.
inline std::wstring Wide(std::string_view text) {
    static_assert(sizeof(wchar_t) == 4);
    std::wstring wide;
    wide.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i++]);
        const size_t more = lead < 0xC2 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : lead < 0xF5 ? 3 : 0;
        std::uint32_t c = more == 0 ? lead : lead & (0x3Fu >> more);
        size_t taken = 0;
        while (taken < more && i + taken < text.size() && (text[i + taken] & 0xC0) == 0x80)
            c = c << 6 | (static_cast<unsigned char>(text[i + taken++]) & 0x3Fu);
        const bool whole = taken == more && c <= 0x10FFFF;
        wide += static_cast<wchar_t>(whole ? c : lead);
        if (whole) i += more;
    }
    return wide;
}

inline std::string Narrow(std::wstring_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (const wchar_t character : text) {
        const auto c = static_cast<std::uint32_t>(character);
        const int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        constexpr std::uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
        bytes += static_cast<char>(kLead[more] | c >> (6 * more));
        for (int i = more - 1; i >= 0; --i)
            bytes += static_cast<char>(0x80 | (c >> (6 * i) & 0x3F));
    }
    return bytes;
}

}  // namespace vlm
