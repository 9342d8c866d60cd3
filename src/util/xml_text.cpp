#include "util/xml_text.h"

#include <cstdint>
#include <cstdio>
#include <iterator>

#include "util/xml_names.h"

namespace vlm {

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

// What has a meaning in markup, and the white space that a parser would turn into blanks or line feeds.
constexpr std::wstring_view kSpecial = L"&<>\"'\t\n\r";

// The entity for a markup character; empty for any other character.
std::string_view EntityOf(std::uint32_t c) {
    // In the order of kSpecial.
    static constexpr std::string_view kEntities[] = {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
    const size_t markup = kSpecial.substr(0, std::size(kEntities)).find(static_cast<wchar_t>(c));
    return markup != std::wstring_view::npos && c < 0x80 ? kEntities[markup] : std::string_view();
}

bool IsXmlCharacter(std::uint32_t c) {
    return c < 0x20 ? c == '\t' || c == '\n' || c == '\r' : c != 0xFFFE && c != 0xFFFF;
}

}  // namespace

std::wstring EscapeXml(std::wstring_view text) {
    std::wstring allowed(text);
    for (size_t position = 0; position < text.size();) {
        const size_t start = position;
        const std::uint32_t c = NextCharacter(text, &position);
        if (c == kReplacement || !IsXmlCharacter(c)) allowed[start] = kReplacement;
    }
    std::wstring escaped;
    escaped.reserve(allowed.size());
    AppendEscaped(&escaped, allowed, kSpecial);
    return escaped;
}

void AppendEscaped(std::wstring* out, std::wstring_view text, std::wstring_view special) {
    for (;;) {
        const size_t plain = text.find_first_of(special);
        *out += text.substr(0, plain);
        if (plain == std::wstring_view::npos) return;
        size_t next = plain;
        const std::uint32_t c = NextCharacter(text, &next);
        const std::string_view entity = EntityOf(c);
        out->append(entity.begin(), entity.end());
        if (entity.empty()) *out += L"&#" + std::to_wstring(c) + L";";
        text.remove_prefix(next);
    }
}

void AppendEscapedAscii(std::string* out, std::wstring_view text) {
    for (size_t position = 0; position < text.size();) {
        const std::uint32_t c = NextCharacter(text, &position);
        const std::string_view entity = EntityOf(c);
        if (!entity.empty()) {
            *out += entity;
        } else if (c >= 0x20 && c <= 0x7E) {
            *out += static_cast<char>(c);
        } else {
            char reference[16];
            std::snprintf(reference, sizeof reference, "&#x%06X;", static_cast<unsigned>(c));
            *out += reference;
        }
    }
}

}  // namespace vlm
