// The parameters of a SOAP operation: their description, and their values. Plain standard C++.
//
// An operation is described by tables that live as long as the program; its record holds one value per field,
// in the table's order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vlm {

// XML Schema's built-in types.
enum class XsdType : std::uint8_t {
    kString,
    kNormalizedString,
    kToken,
    kLanguage,
    kName,
    kNcName,
    kNmtoken,
    kNmtokens,
    kId,
    kIdref,
    kIdrefs,
    kEntity,
    kEntities,
    kQName,
    kNotation,
    kAnyUri,
    kBoolean,
    kFloat,
    kDouble,
    kDecimal,
    kInteger,
    kNonPositiveInteger,
    kNegativeInteger,
    kNonNegativeInteger,
    kPositiveInteger,
    kLong,
    kInt,
    kShort,
    kByte,
    kUnsignedLong,
    kUnsignedInt,
    kUnsignedShort,
    kUnsignedByte,
    kHexBinary,
    kBase64Binary,
    kDuration,
    kDateTime,
    kTime,
    kDate,
    kGYearMonth,
    kGYear,
    kGMonthDay,
    kGDay,
    kGMonth,
};

struct SoapValue;
using SoapValues = std::vector<SoapValue>;

// A null, a value of a built-in type, or the members of an array or a user type.
//   bool           boolean
//   int64_t        long, int, short, byte
//   uint64_t       their unsigned counterparts
//   double         float, double
//   bytes          hexBinary, base64Binary
//   wstring        all others in their lexical form, for want of a C++ type that holds such a decimal or date
struct SoapValue : std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double,
                                std::vector<std::byte>, std::wstring, SoapValues> {
    using variant::variant;
    // Out of line, so that eight types' worth of copying is not repeated wherever a value is handed on.
    SoapValue();
    SoapValue(const SoapValue&);
    SoapValue(SoapValue&&) noexcept;
    SoapValue& operator=(const SoapValue&);
    SoapValue& operator=(SoapValue&&) noexcept;
    ~SoapValue();
    bool IsNull() const { return index() == 0; }
};

enum SoapFlags : unsigned {
    kSoapIn = 0x01,
    kSoapOut = 0x02,
    kSoapNullable = 0x04,
    kSoapArray = 0x08,           // of the field's type
    kSoapMustUnderstand = 0x10,  // headers only
};

constexpr std::uint32_t HashOfName(std::wstring_view name) {
    std::uint32_t hash = 2166136261u;
    for (const wchar_t c : name)
        hash = (hash ^ static_cast<std::uint32_t>(c & 0x1FFFFF)) * 16777619u;
    return hash;
}

struct SoapUserType;

struct SoapField {
    std::wstring_view name;
    XsdType type = XsdType::kString;
    unsigned flags = 0;
    const SoapUserType* userType = nullptr;  // in place of `type`
    std::uint32_t hash = HashOfName(name);
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

// The name as XML Schema has it, such as "unsignedInt".
std::wstring_view NameOf(XsdType type);

// Appends `value` in the lexical form of `type`, escaped. False, with nothing useful appended, when the value
// is of another kind or is text outside the lexical form.
bool AppendValue(std::string* out, XsdType type, const SoapValue& value);

// Reads text in the lexical form of `type`, white space treated as the type demands. False for anything else,
// and for a number that the value cannot hold.
bool ParseValue(XsdType type, std::wstring_view text, SoapValue* value);

}  // namespace vlm
