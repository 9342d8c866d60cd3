// Any text as a value of any type (the first byte): what is accepted is written in a form that a parser which
// is not ours reads, and that is the same value again. Dates are those that a validator takes, too.
#include <expat.h>
#include <libxml/xmlschemastypes.h>

#include <cmath>

#include "fuzz_input.h"
#include "soap/soap_record.h"
#include "tests/soap/utf8.h"

namespace {

// The text that `escaped` stands for in an element; false when it can stand in none.
bool Unescape(const std::string& escaped, std::string* text) {
    const XML_Parser parser = XML_ParserCreate("US-ASCII");
    XML_SetUserData(parser, text);
    XML_SetCharacterDataHandler(parser, [](void* out, const char* piece, int length) {
        static_cast<std::string*>(out)->append(piece, static_cast<size_t>(length));
    });
    const std::string document = "<v>" + escaped + "</v>";
    const bool good =
        XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return good;
}

bool IsInXml(std::wstring_view text) {
    for (const wchar_t c : text) {
        const bool control = c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r';
        if (control || (c >= 0xD800 && c <= 0xDFFF) || c == 0xFFFE || c == 0xFFFF) return false;
    }
    return true;
}

bool IsNan(const vlm::SoapValue& value) {
    const double* const number = std::get_if<double>(&value);
    return number != nullptr && std::isnan(*number);
}

// Whether a validator that is not ours takes the text, too. Only of the types of which it has the same
// notion, and of years that fit into its numbers.
bool IsJudgedAlike(vlm::XsdType type, const std::string& text, bool accepted) {
    using enum vlm::XsdType;
    const bool isDate = type >= kDateTime && type <= kGMonth;
    if (!isDate && type != kBoolean && type != kHexBinary) return true;
    constexpr size_t kLongestYear = 18;
    if (isDate && text.find_first_not_of("0123456789", text.find_first_of("0123456789")) > kLongestYear)
        return true;

    const std::string name = vlm::Narrow(vlm::NameOf(type));
    const xmlSchemaTypePtr known =
        xmlSchemaGetPredefinedType(reinterpret_cast<const xmlChar*>(name.c_str()),
                                   reinterpret_cast<const xmlChar*>("http://www.w3.org/2001/XMLSchema"));
    FUZZ_CHECK(known != nullptr);
    return (xmlSchemaValidatePredefinedType(known, reinterpret_cast<const xmlChar*>(text.c_str()), nullptr) ==
            0) == accepted;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    constexpr size_t kTypes = static_cast<size_t>(vlm::XsdType::kGMonth) + 1;
    const auto type = static_cast<vlm::XsdType>(data[0] % kTypes);
    const std::wstring text = vlm::Wide({reinterpret_cast<const char*>(data) + 1, size - 1});
    const std::vector<wchar_t> exact(text.begin(), text.end());  // so that a read behind it is seen

    vlm::SoapValue value;
    if (!vlm::ParseValue(type, {exact.data(), exact.size()}, &value)) {
        FUZZ_CHECK(!IsInXml(text) || IsJudgedAlike(type, vlm::Narrow(text), false));
        return 0;
    }
    std::string written;
    FUZZ_CHECK(vlm::AppendValue(&written, type, value));
    std::string seen;
    const auto* const kept = std::get_if<std::wstring>(&value);
    // Of what no document holds, a parser of ours never hears.
    if (kept != nullptr && !IsInXml(*kept)) return 0;
    FUZZ_CHECK(Unescape(written, &seen));
    FUZZ_CHECK(IsJudgedAlike(type, vlm::Narrow(text), true));

    vlm::SoapValue back;
    FUZZ_CHECK(vlm::ParseValue(type, vlm::Wide(seen), &back));
    FUZZ_CHECK(back == value || (IsNan(back) && IsNan(value)));
    std::string again;
    FUZZ_CHECK(vlm::AppendValue(&again, type, back) && again == written);
    return 0;
}
