#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "soap/soap_record.h"
#include "soap/xml_text.h"
#include "soap/xsd_lexical.h"
#include "util/xml_names.h"

namespace vlm {

namespace {

using std::int64_t;
using std::uint64_t;
using std::wstring;
using std::wstring_view;
using Bytes = std::vector<std::byte>;

enum class Space { kPreserve, kReplace, kCollapse };

bool Any(wstring_view) {
    return true;
}
bool IsInteger(wstring_view text) {
    return xsd::SignOfInteger(text) != 2;
}
bool IsNonPositive(wstring_view text) {
    return xsd::SignOfInteger(text) <= 0;
}
bool IsNegative(wstring_view text) {
    return xsd::SignOfInteger(text) < 0;
}
bool IsNonNegative(wstring_view text) {
    const int sign = xsd::SignOfInteger(text);
    return sign == 0 || sign == 1;
}
bool IsPositive(wstring_view text) {
    return xsd::SignOfInteger(text) == 1;
}
template <bool (*isItem)(wstring_view)>
bool IsListOf(wstring_view text) {
    return xsd::IsList(text, isItem);
}
template <xsd::Calendar form>
bool IsCalendarOf(wstring_view text) {
    return xsd::IsCalendar(text, form);
}

struct TypeInfo {
    wstring_view name;
    // For types that are kept as text.
    bool (*isText)(wstring_view) = nullptr;
    // For whole numbers that have bounds; the type is unsigned when `least` is 0.
    int64_t least = 0;
    uint64_t most = 0;
};

template <typename Integer>
constexpr TypeInfo Bounded(wstring_view name) {
    using Limits = std::numeric_limits<Integer>;
    return {name, nullptr, static_cast<int64_t>(Limits::min()), static_cast<uint64_t>(Limits::max())};
}

// In the order of XsdType.
constexpr std::array kTypes = {
    TypeInfo{L"string", Any},
    TypeInfo{L"normalizedString", Any},
    TypeInfo{L"token", Any},
    TypeInfo{L"language", xsd::IsLanguage},
    TypeInfo{L"Name", IsXmlName},
    TypeInfo{L"NCName", IsNcName},
    TypeInfo{L"NMTOKEN", IsNmtoken},
    TypeInfo{L"NMTOKENS", IsListOf<IsNmtoken>},
    TypeInfo{L"ID", IsNcName},
    TypeInfo{L"IDREF", IsNcName},
    TypeInfo{L"IDREFS", IsListOf<IsNcName>},
    TypeInfo{L"ENTITY", IsNcName},
    TypeInfo{L"ENTITIES", IsListOf<IsNcName>},
    TypeInfo{L"QName", IsQName},
    TypeInfo{L"NOTATION", IsQName},
    TypeInfo{L"anyURI", Any},
    TypeInfo{L"boolean"},
    TypeInfo{L"float"},
    TypeInfo{L"double"},
    TypeInfo{L"decimal", xsd::IsDecimal},
    TypeInfo{L"integer", IsInteger},
    TypeInfo{L"nonPositiveInteger", IsNonPositive},
    TypeInfo{L"negativeInteger", IsNegative},
    TypeInfo{L"nonNegativeInteger", IsNonNegative},
    TypeInfo{L"positiveInteger", IsPositive},
    Bounded<int64_t>(L"long"),
    Bounded<std::int32_t>(L"int"),
    Bounded<std::int16_t>(L"short"),
    Bounded<std::int8_t>(L"byte"),
    Bounded<uint64_t>(L"unsignedLong"),
    Bounded<std::uint32_t>(L"unsignedInt"),
    Bounded<std::uint16_t>(L"unsignedShort"),
    Bounded<std::uint8_t>(L"unsignedByte"),
    TypeInfo{L"hexBinary"},
    TypeInfo{L"base64Binary"},
    TypeInfo{L"duration", xsd::IsDuration},
    TypeInfo{L"dateTime", IsCalendarOf<xsd::Calendar::kDateTime>},
    TypeInfo{L"time", IsCalendarOf<xsd::Calendar::kTime>},
    TypeInfo{L"date", IsCalendarOf<xsd::Calendar::kDate>},
    TypeInfo{L"gYearMonth", IsCalendarOf<xsd::Calendar::kGYearMonth>},
    TypeInfo{L"gYear", IsCalendarOf<xsd::Calendar::kGYear>},
    TypeInfo{L"gMonthDay", IsCalendarOf<xsd::Calendar::kGMonthDay>},
    TypeInfo{L"gDay", IsCalendarOf<xsd::Calendar::kGDay>},
    TypeInfo{L"gMonth", IsCalendarOf<xsd::Calendar::kGMonth>},
};
static_assert(kTypes.size() == static_cast<size_t>(XsdType::kGMonth) + 1);

const TypeInfo& InfoOf(XsdType type) {
    return kTypes[static_cast<size_t>(type)];
}

Space SpaceOf(XsdType type) {
    if (type == XsdType::kString) return Space::kPreserve;
    return type == XsdType::kNormalizedString ? Space::kReplace : Space::kCollapse;
}

wstring TreatSpace(wstring_view text, Space space) {
    wstring treated;
    treated.reserve(text.size());
    for (const wchar_t c : text) {
        const bool blank = c == L' ' || c == L'\t' || c == L'\n' || c == L'\r';
        if (!blank || space == Space::kPreserve) {
            treated += c;
        } else if (space == Space::kReplace || (!treated.empty() && treated.back() != L' ')) {
            treated += L' ';
        }
    }
    if (space == Space::kCollapse && !treated.empty() && treated.back() == L' ') treated.pop_back();
    return treated;
}

std::string Narrow(wstring_view ascii) {
    std::string narrow;
    narrow.reserve(ascii.size());
    for (const wchar_t c : ascii)
        narrow += static_cast<char>(c);
    return narrow;
}

template <typename Number>
bool ParseNumber(wstring_view text, Number* number) {
    if (text.starts_with(L'+')) text.remove_prefix(1);
    const std::string narrow = Narrow(text);
    const auto [end, error] = std::from_chars(narrow.data(), narrow.data() + narrow.size(), *number);
    return error == std::errc() && end == narrow.data() + narrow.size();
}

bool ParseBoolean(wstring_view text, SoapValue* value) {
    if (text == L"true" || text == L"1")
        *value = SoapValue(true);
    else if (text == L"false" || text == L"0")
        *value = SoapValue(false);
    else
        return false;
    return true;
}

bool ParseFloating(wstring_view text, bool single, SoapValue* value) {
    double number = 0;
    float narrow = 0;
    if (text == L"INF" || text == L"-INF") {
        number = text.front() == L'-' ? -HUGE_VAL : HUGE_VAL;
    } else if (text == L"NaN") {
        number = std::numeric_limits<double>::quiet_NaN();
    } else {
        if (!xsd::IsScientific(text)) return false;
        if (single ? !ParseNumber(text, &narrow) : !ParseNumber(text, &number)) return false;
        if (single) number = static_cast<double>(narrow);
    }
    *value = SoapValue(number);
    return true;
}

bool ParseBounded(wstring_view text, const TypeInfo& info, SoapValue* value) {
    const int sign = xsd::SignOfInteger(text);
    if (sign == 2) return false;
    if (info.least == 0) {
        uint64_t number = 0;
        if (sign < 0 || (sign > 0 && !ParseNumber(text, &number)) || number > info.most) return false;
        *value = SoapValue(number);
        return true;
    }
    int64_t number = 0;
    if (!ParseNumber(text, &number) || number < info.least) return false;
    if (number > 0 && static_cast<uint64_t>(number) > info.most) return false;
    *value = SoapValue(number);
    return true;
}

int HexDigit(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
}

bool ParseHex(wstring_view text, SoapValue* value) {
    if (text.size() % 2 != 0) return false;
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = HexDigit(text[i]);
        const int low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0) return false;
        bytes.push_back(static_cast<std::byte>(high * 16 + low));
    }
    *value = SoapValue(std::move(bytes));
    return true;
}

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool ParseBase64(wstring_view spaced, SoapValue* value) {
    wstring text(spaced);
    std::erase(text, L' ');
    if (text.size() % 4 != 0) return false;
    size_t padding = 0;
    while (padding < 2 && !text.empty() && text.back() == L'=') {
        text.pop_back();
        ++padding;
    }
    Bytes bytes;
    unsigned bits = 0;
    int held = 0;
    for (const wchar_t c : text) {
        const size_t digit = c > 0 && c < 0x80 ? kBase64.find(static_cast<char>(c)) : kBase64.npos;
        if (digit == kBase64.npos) return false;
        bits = bits << 6 | static_cast<unsigned>(digit);
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes.push_back(static_cast<std::byte>(bits >> held & 0xFF));
        }
    }
    // The bits that padding leaves over say nothing and have to.
    if ((bits & ((1u << held) - 1)) != 0) return false;
    *value = SoapValue(std::move(bytes));
    return true;
}

void AppendHex(std::string* out, const Bytes& bytes) {
    for (const std::byte byte : bytes) {
        const auto number = std::to_integer<unsigned>(byte);
        *out += "0123456789ABCDEF"[number >> 4];
        *out += "0123456789ABCDEF"[number & 15];
    }
}

void AppendBase64(std::string* out, const Bytes& bytes) {
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        unsigned bits = 0;
        for (size_t k = 0; k < 3; ++k)
            bits = bits << 8 | (k < count ? std::to_integer<unsigned>(bytes[i + k]) : 0);
        for (size_t k = 0; k < 4; ++k)
            *out += k <= count ? kBase64[bits >> (18 - 6 * k) & 63] : '=';
    }
}

template <typename Number>
void AppendNumber(std::string* out, Number number) {
    char text[64];
    out->append(text, std::to_chars(text, text + sizeof text, number).ptr);
}

void AppendFloating(std::string* out, double number, bool single) {
    if (std::isnan(number)) {
        *out += "NaN";
    } else if (std::isinf(number)) {
        *out += number < 0 ? "-INF" : "INF";
    } else if (single) {
        AppendNumber(out, static_cast<float>(number));
    } else {
        AppendNumber(out, number);
    }
}

bool IsWithin(const TypeInfo& info, int64_t number) {
    return info.least < 0 && number >= info.least &&
           (number < 0 || static_cast<uint64_t>(number) <= info.most);
}

bool AppendBytes(std::string* out, XsdType type, const SoapValue& value) {
    const Bytes* const bytes = std::get_if<Bytes>(&value);
    if (bytes == nullptr) return false;
    type == XsdType::kHexBinary ? AppendHex(out, *bytes) : AppendBase64(out, *bytes);
    return true;
}

}  // namespace

SoapValue::SoapValue() = default;
SoapValue::SoapValue(const SoapValue&) = default;
SoapValue::SoapValue(SoapValue&&) noexcept = default;
SoapValue& SoapValue::operator=(const SoapValue&) = default;
SoapValue& SoapValue::operator=(SoapValue&&) noexcept = default;
SoapValue::~SoapValue() = default;

wstring_view NameOf(XsdType type) {
    return InfoOf(type).name;
}

bool ParseValue(XsdType type, wstring_view raw, SoapValue* value) {
    const TypeInfo& info = InfoOf(type);
    wstring text = TreatSpace(raw, SpaceOf(type));
    switch (type) {
        case XsdType::kBoolean:
            return ParseBoolean(text, value);
        case XsdType::kFloat:
        case XsdType::kDouble:
            return ParseFloating(text, type == XsdType::kFloat, value);
        case XsdType::kHexBinary:
            return ParseHex(text, value);
        case XsdType::kBase64Binary:
            return ParseBase64(text, value);
        default:
            break;
    }
    if (info.isText == nullptr) return ParseBounded(text, info, value);
    if (!info.isText(text)) return false;
    *value = SoapValue(std::move(text));
    return true;
}

bool AppendValue(std::string* out, XsdType type, const SoapValue& value) {
    const TypeInfo& info = InfoOf(type);
    switch (type) {
        case XsdType::kBoolean:
            if (!std::holds_alternative<bool>(value)) return false;
            *out += std::get<bool>(value) ? "true" : "false";
            return true;
        case XsdType::kFloat:
        case XsdType::kDouble:
            if (!std::holds_alternative<double>(value)) return false;
            AppendFloating(out, std::get<double>(value), type == XsdType::kFloat);
            return true;
        case XsdType::kHexBinary:
        case XsdType::kBase64Binary:
            return AppendBytes(out, type, value);
        default:
            break;
    }
    if (info.isText != nullptr) {
        const wstring* const text = std::get_if<wstring>(&value);
        if (text == nullptr || !info.isText(TreatSpace(*text, SpaceOf(type)))) return false;
        AppendEscaped(out, *text);
        return true;
    }
    if (const auto* number = std::get_if<int64_t>(&value)) {
        if (!IsWithin(info, *number)) return false;
        AppendNumber(out, *number);
        return true;
    }
    const auto* const number = std::get_if<uint64_t>(&value);
    if (number == nullptr || info.least != 0 || *number > info.most) return false;
    AppendNumber(out, *number);
    return true;
}

}  // namespace vlm
