#include <utility>

#include "soap/soap_record.h"
#include "util/xml_names.h"
#include "util/xml_text.h"

namespace vlm {

namespace {

bool ParseBoolean(std::wstring_view text, SoapValue* value) {
    const bool isTrue = text == L"true" || text == L"1";
    if (!isTrue && text != L"false" && text != L"0") return false;
    *value = isTrue;
    return true;
}

template <typename Integer>
bool ParseInteger(std::wstring_view text, SoapValue* value) {
    const bool negative = text.starts_with(L'-');
    if (negative || text.starts_with(L'+')) text.remove_prefix(1);
    if (text.empty()) return false;
    std::int64_t number = 0;
    for (const wchar_t c : text) {
        if (c < L'0' || c > L'9' || number > UINT32_MAX) return false;
        number = number * 10 + (c - L'0');
    }
    if (negative) number = -number;
    if (!std::in_range<Integer>(number)) return false;
    *value = static_cast<Integer>(number);
    return true;
}

// What follows when the value is a Kind: `append` appends it.
template <typename Kind, typename Append>
bool AppendKind(const SoapValue& value, Append&& append) {
    const Kind* const held = std::get_if<Kind>(&value);
    if (held != nullptr) append(*held);
    return held != nullptr;
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
    const auto appendNumber = [out](auto number) { *out += std::to_string(number); };
    switch (type) {
        case XsdType::kString:
            return AppendKind<std::wstring>(value,
                                            [out](const auto& text) { AppendEscapedAscii(out, text); });
        case XsdType::kBoolean:
            return AppendKind<bool>(value, [out](bool truth) { *out += truth ? "true" : "false"; });
        case XsdType::kInt:
            return AppendKind<std::int32_t>(value, appendNumber);
        case XsdType::kUnsignedInt:
            return AppendKind<std::uint32_t>(value, appendNumber);
    }
    return false;
}

}  // namespace vlm
