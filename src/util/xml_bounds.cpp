#include "util/xml_bounds.h"

#include <algorithm>
#include <array>

namespace vlm {

namespace {

using std::string_view;

// UTF-16 reduced to its ASCII characters, everything else to one character that no markup has: the scan looks
// at nothing else.
std::string AsciiOfUtf16(string_view bytes, size_t lowByte) {
    std::string ascii(bytes.size() / 2, '\x7F');
    for (size_t i = 0; i < ascii.size(); ++i) {
        const char low = bytes[2 * i + lowByte];
        if (bytes[2 * i + 1 - lowByte] == 0 && static_cast<unsigned char>(low) < 0x80) ascii[i] = low;
    }
    return ascii;
}

std::string LowerCase(string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

bool IsScannableEncoding(string_view declaration) {
    const size_t keyword = declaration.find("encoding");
    if (keyword == string_view::npos) return true;
    const size_t quote = declaration.find_first_of("\"'", keyword);
    if (quote == string_view::npos) return false;
    const string_view rest = declaration.substr(quote + 1);
    const std::string name = LowerCase(rest.substr(0, rest.find(declaration[quote])));
    constexpr std::array<string_view, 4> kNames = {"utf-8", "utf-16", "us-ascii", "ascii"};
    constexpr std::array<string_view, 2> kFamilies = {"iso-8859-", "windows-125"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end() ||
           std::any_of(kFamilies.begin(), kFamilies.end(),
                       [&](string_view f) { return name.starts_with(f); });
}

// The position behind the '>' that ends the tag at the front of `text`, quoted '>' apart; npos when there is
// none. Counts its attributes.
size_t EndOfTag(string_view text, size_t& attributes) {
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '>') return i + 1;
        if (text[i] == '"' || text[i] == '\'') {
            i = text.find(text[i], i + 1);
            if (i == string_view::npos) break;
            ++attributes;
        }
    }
    return string_view::npos;
}

// `ready`, if not null, receives the text with a line end in each end tag.
XmlRefusal Scan(string_view text, const XmlLimits& limits, std::string* ready) {
    // In the encodings that are let through, NUL is no character of a document.
    if (text.find('\0') != string_view::npos) return XmlRefusal::kEncoding;
    if (text.starts_with("<?xml") && !IsScannableEncoding(text.substr(0, text.find("?>")))) {
        return XmlRefusal::kEncoding;
    }
    size_t depth = 0;
    size_t nodes = 0;
    string_view rest = text;
    const auto take = [&](size_t count) {
        if (ready != nullptr) *ready += rest.substr(0, count);
        rest.remove_prefix(count);
    };
    for (size_t at = rest.find('<'); at != string_view::npos; at = rest.find('<')) {
        take(at);
        size_t end = string_view::npos;
        bool isEndTag = false;
        const auto endsWith = [&](string_view mark, size_t from) {
            end = rest.find(mark, from);
            if (end != string_view::npos) end += mark.size();
        };
        if (rest.starts_with("<!--")) {
            endsWith("-->", 4);
        } else if (rest.starts_with("<![CDATA[")) {
            endsWith("]]>", 9);
        } else if (rest.starts_with("<!")) {
            return XmlRefusal::kDocumentType;
        } else if (rest.starts_with("<?")) {
            endsWith("?>", 2);
        } else {
            size_t attributes = 0;
            end = EndOfTag(rest.substr(0, limits.tag), attributes);
            if (end == string_view::npos && rest.size() > limits.tag) return XmlRefusal::kTagTooLong;
            if (end == string_view::npos) break;
            isEndTag = rest[1] == '/';
            if (isEndTag) {
                if (depth > 0) --depth;
            } else {
                nodes += 1 + attributes;
                if (nodes > limits.nodes) return XmlRefusal::kTooManyNodes;
                if (rest[end - 2] != '/' && ++depth > limits.depth) return XmlRefusal::kTooDeep;
            }
        }
        if (end == string_view::npos) break;  // inside markup: no parser gets beyond this either
        take(end - 1);
        if (isEndTag && ready != nullptr) *ready += '\n';
        take(1);
    }
    take(rest.size());
    return XmlRefusal::kNone;
}

}  // namespace

XmlRefusal CheckXmlBounds(string_view text, const XmlLimits& limits, std::string* ready) {
    if (text.size() > limits.bytes) return XmlRefusal::kTooLarge;
    const auto scanWide = [&](string_view units, size_t lowByte) {
        if (ready != nullptr) *ready = text;
        return Scan(AsciiOfUtf16(units, lowByte), limits, nullptr);
    };
    if (text.starts_with("\xFF\xFE")) return scanWide(text.substr(2), 0);
    if (text.starts_with("\xFE\xFF")) return scanWide(text.substr(2), 1);
    if (text.starts_with(string_view("<\0", 2))) return scanWide(text, 0);
    if (text.starts_with(string_view("\0<", 2))) return scanWide(text, 1);
    // EBCDIC's '<': a parser that knows that code would see markup where this one sees none.
    if (text.starts_with('\x4C')) return XmlRefusal::kEncoding;
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    if (ready != nullptr) ready->clear();
    return Scan(text, limits, ready);
}

const wchar_t* Describe(XmlRefusal refusal) {
    switch (refusal) {
        case XmlRefusal::kNone:
            break;
        case XmlRefusal::kTooLarge:
            return L"is too large";
        case XmlRefusal::kDocumentType:
            return L"has a document type declaration";
        case XmlRefusal::kTooDeep:
            return L"nests its elements too deeply";
        case XmlRefusal::kTooManyNodes:
            return L"has too many elements and attributes";
        case XmlRefusal::kTagTooLong:
            return L"has a tag that is too long";
        case XmlRefusal::kEncoding:
            return L"is in an encoding that is not supported";
    }
    return L"is acceptable";
}

}  // namespace vlm
