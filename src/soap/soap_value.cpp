#include <utility>

#include "soap/digits.h"
#include "soap/soap_record.h"
#include "util/xml_names.h"
#include "util/xml_text.h"

namespace vlm {

namespace {

bool ParseBoolean(std::wstring_view text, SoapValue* value) {
    const bool isTrue = text == L"true" || text == L"1";
    *value = isTrue;
    return isTrue || text == L"false" || text == L"0";
}

template <typename Integer>
bool ParseInteger(std::wstring_view text, SoapValue* value) {
    const bool negative = text.starts_with(L'-');
    if (negative || text.starts_with(L'+')) text.remove_prefix(1);
    const auto digits = ParseDigits(text, UINT32_MAX);
    const std::int64_t magnitude = static_cast<std::int64_t>(digits.value_or(0));
    const std::int64_t number = negative ? -magnitude : magnitude;
    if (!digits || !std::in_range<Integer>(number)) return false;
    *value = static_cast<Integer>(number);
    return true;
}

}  // namespace

std::wstring_view NameOf(XsdType type) {
    constexpr std::wstring_view kNames[] = {L"string", L"boolean", L"int", L"unsignedInt"};
    return kNames[static_cast<size_t>(type)];
}

bool ParseValue(XsdType type, std::wstring_view text, SoapValue* value) {
    const std::wstring_view trimmed = TrimXmlSpace(text);
    switch (type) {
        case XsdType::kString:
            *value = std::wstring(text);
            return true;
        case XsdType::kBoolean:
            return ParseBoolean(trimmed, value);
        case XsdType::kInt:
            return ParseInteger<std::int32_t>(trimmed, value);
        case XsdType::kUnsignedInt:
            return ParseInteger<std::uint32_t>(trimmed, value);
    }
    return false;
}

bool AppendValue(std::string* out, XsdType type, const SoapValue& value) {
    // Behind the null, the variant's alternatives are in the order of the types.
    if (value.index() != static_cast<size_t>(type) + 1) return false;
    switch (type) {
        case XsdType::kString:
            AppendEscapedAscii(out, std::get<std::wstring>(value));
            break;
        case XsdType::kBoolean:
            *out += std::get<bool>(value) ? "true" : "false";
            break;
        case XsdType::kInt:
            *out += std::to_string(std::get<std::int32_t>(value));
            break;
        case XsdType::kUnsignedInt:
            *out += std::to_string(std::get<std::uint32_t>(value));
            break;
    }
    return true;
}

}  // namespace vlm
