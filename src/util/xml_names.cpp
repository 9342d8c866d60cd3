#include "util/xml_names.h"

#include <algorithm>
#include <span>

namespace vlm {

namespace {

constexpr bool IsHighSurrogate(std::uint32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}

constexpr bool IsLowSurrogate(std::uint32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

constexpr Range kNameStart[] = {{'A', 'Z'},       {'_', '_'},       {'a', 'z'},        {0xC0, 0xD6},
                                {0xD8, 0xF6},     {0xF8, 0x2FF},    {0x370, 0x37D},    {0x37F, 0x1FFF},
                                {0x200C, 0x200D}, {0x2070, 0x218F}, {0x2C00, 0x2FEF},  {0x3001, 0xD7FF},
                                {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF}};
constexpr Range kNameFurther[] = {{'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

bool IsIn(std::span<const Range> ranges, std::uint32_t c) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [c](const Range& r) { return c >= r.first && c <= r.last; });
}

}  // namespace

const NamespaceDeclaration* FindPrefix(const std::vector<NamespaceDeclaration>& declarations,
                                       std::wstring_view prefix) {
    const auto found =
        std::find_if(declarations.begin(), declarations.end(),
                     [&](const NamespaceDeclaration& declaration) { return declaration.prefix == prefix; });
    return found != declarations.end() ? &*found : nullptr;
}

std::wstring_view TrimXmlSpace(std::wstring_view text) {
    const size_t first = text.find_first_not_of(kXmlSpace);
    if (first == std::wstring_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kXmlSpace) + 1 - first);
}

std::uint32_t NextCharacter(std::wstring_view text, size_t* position) {
    constexpr int kAnyCharacter = 0x1FFFFF;
    const auto c = static_cast<std::uint32_t>(text[(*position)++] & kAnyCharacter);
    if (IsHighSurrogate(c) && *position < text.size()) {
        const auto low = static_cast<std::uint32_t>(text[*position] & kAnyCharacter);
        if (IsLowSurrogate(low)) {
            ++*position;
            return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    return IsHighSurrogate(c) || IsLowSurrogate(c) ? 0xFFFD : c;
}

bool IsNcName(std::wstring_view text) {
    for (size_t position = 0; position < text.size();) {
        const bool first = position == 0;
        const std::uint32_t c = NextCharacter(text, &position);
        if (!IsIn(kNameStart, c) && (first || !IsIn(kNameFurther, c))) return false;
    }
    return !text.empty();
}

}  // namespace vlm
