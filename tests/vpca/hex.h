// Wire bytes written as hex digits, and back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::vpca {

using Bytes = std::vector<uint8_t>;

// Blanks are skipped. The vector is exactly as large as the bytes, so that the sanitizer sees a read behind
// them.
inline Bytes Hex(std::string_view digits) {
    std::string clean;
    for (const char c : digits) {
        if (c != ' ') clean += c;
    }
    Bytes bytes(clean.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(std::stoi(clean.substr(2 * i, 2), nullptr, 16));
    }
    return bytes;
}

inline std::string ToHex(const uint8_t* bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        if (i != 0) text += ' ';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

}  // namespace vlm::vpca
