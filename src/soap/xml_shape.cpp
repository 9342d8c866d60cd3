#include "soap/xml_shape.h"

#include <algorithm>
#include <array>
#include <string>

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
// none within the longest tag allowed.
size_t EndOfTag(string_view text) {
    text = text.substr(0, kLongestXmlTag);
    for (size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '>') return i + 1;
        if (text[i] == '"' || text[i] == '\'') {
            i = text.find(text[i], i + 1);
            if (i == string_view::npos) break;
        }
    }
    return string_view::npos;
}

// `broken`, if not null, receives the text with a line end in each end tag.
const wchar_t* Scan(string_view text, std::string* broken) {
    if (text.starts_with("<?xml") && !IsScannableEncoding(text.substr(0, text.find("?>")))) {
        return L"its encoding is not supported";
    }
    size_t depth = 0;
    size_t elements = 0;
    string_view rest = text;
    const auto take = [&](size_t count) {
        if (broken != nullptr) *broken += rest.substr(0, count);
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
            return L"it has a document type declaration";
        } else if (rest.starts_with("<?")) {
            endsWith("?>", 2);
        } else {
            end = EndOfTag(rest);
            if (end == string_view::npos) return L"it has a tag that is too long or does not end";
            isEndTag = rest[1] == '/';
            if (isEndTag) {
                if (depth > 0) --depth;
            } else {
                if (++elements > kMostXmlElements) return L"it has too many elements";
                if (rest[end - 2] != '/' && ++depth > kDeepestXml) return L"it is nested too deep";
            }
        }
        if (end == string_view::npos) return L"it ends inside markup";
        take(end - 1);
        if (isEndTag && broken != nullptr) *broken += '\n';
        take(1);
    }
    take(rest.size());
    return nullptr;
}

}  // namespace

const wchar_t* WhyNotParse(string_view bytes, std::string* ready) {
    *ready = bytes;
    if (bytes.starts_with("\xFF\xFE")) return Scan(AsciiOfUtf16(bytes.substr(2), 0), nullptr);
    if (bytes.starts_with("\xFE\xFF")) return Scan(AsciiOfUtf16(bytes.substr(2), 1), nullptr);
    if (bytes.starts_with(string_view("<\0", 2))) return Scan(AsciiOfUtf16(bytes, 0), nullptr);
    if (bytes.starts_with(string_view("\0<", 2))) return Scan(AsciiOfUtf16(bytes, 1), nullptr);
    // A NUL has no place in the remaining encodings, but it is how a wider one without a mark looks.
    if (bytes.find('\0') != string_view::npos) return L"its encoding is not supported";
    ready->clear();
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    return Scan(bytes, ready);
}

}  // namespace vlm
