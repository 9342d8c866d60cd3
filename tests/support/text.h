// Texts of a test's own making.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vlm::test {

inline std::string Repeat(size_t times, std::string_view text) {
    std::string all;
    all.reserve(times * text.size());
    for (size_t i = 0; i < times; ++i)
        all += text;
    return all;
}

// Little-endian UTF-16 of ASCII, behind a byte order mark.
inline std::string Utf16(std::string_view ascii) {
    std::string bytes = "\xFF\xFE";
    for (const char c : ascii)
        bytes += {c, '\0'};
    return bytes;
}

}  // namespace vlm::test
