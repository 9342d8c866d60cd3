#include "soap/xml_text.h"

#include <cstdint>
#include <cstdio>

#include "util/xml_names.h"

namespace vlm {

void AppendEscaped(std::string* out, std::wstring_view text) {
    for (size_t position = 0; position < text.size();) {
        const std::uint32_t c = NextCharacter(text, &position);
        switch (c) {
            case '&':
                *out += "&amp;";
                continue;
            case '<':
                *out += "&lt;";
                continue;
            case '>':
                *out += "&gt;";
                continue;
            case '"':
                *out += "&quot;";
                continue;
            case '\'':
                *out += "&apos;";
                continue;
            default:
                break;
        }
        if (c >= 0x20 && c <= 0x7E) {
            *out += static_cast<char>(c);
            continue;
        }
        char reference[16];
        std::snprintf(reference, sizeof reference, "&#x%06X;", static_cast<unsigned>(c));
        *out += reference;
    }
}

}  // namespace vlm
