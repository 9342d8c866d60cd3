// The parameters of a SOAP operation: their description, and their values. Plain standard C++.
//
// An operation is described by tables that live as long as the program; its record holds one value per field,
// in the table's order.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vlm {

// The built-in types of XML Schema that operations use.
enum class XsdType : std::uint8_t { kString, kBoolean, kInt, kUnsignedInt };

struct SoapValue;
using SoapValues = std::vector<SoapValue>;

// A null, a value of a built-in type, or the members of an array or a user type.
struct SoapValue : std::variant<std::monostate, std::wstring, bool, std::int32_t, std::uint32_t, SoapValues> {
    using variant::variant;
    bool IsNull() const { return index() == 0; }
};

enum SoapFlags : unsigned {
    kSoapIn = 0x01,
    kSoapOut = 0x02,
    kSoapNullable = 0x04,
    kSoapArray = 0x08,           // of the field's type
    kSoapMustUnderstand = 0x10,  // headers only
};

struct SoapUserType;

struct SoapField {
    std::wstring_view name;
    XsdType type = XsdType::kString;
    unsigned flags = 0;
    const SoapUserType* userType = nullptr;  // in place of `type`
};

struct SoapUserType {
    std::wstring_view name;
    std::wstring_view uri;
    std::span<const SoapField> fields;
};

struct SoapOperation {
    std::wstring_view name;
    std::wstring_view uri;  // the service's namespace
    std::span<const SoapField> fields;
    std::span<const SoapField> headers;
};

// The name in XML Schema, such as "unsignedInt".
std::wstring_view NameOf(XsdType type);

// Appends `value` in the lexical form of `type`, escaped. False, with nothing appended, when the value is of
// another type.
bool AppendValue(std::string* out, XsdType type, const SoapValue& value);

// Reads text in the lexical form of `type`; white space around anything but a string does not count. False
// for any other text, and for a number outside the type's range.
bool ParseValue(XsdType type, std::wstring_view text, SoapValue* value);

}  // namespace vlm
