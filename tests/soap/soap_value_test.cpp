#include <gtest/gtest.h>

#include "soap/soap_record.h"

namespace vlm {
namespace {

// What a text becomes on its way in and out again, or "refused".
std::string Canonical(XsdType type, std::wstring_view text) {
    SoapValue value;
    if (!ParseValue(type, text, &value)) return "refused";
    std::string out;
    return AppendValue(&out, type, value) ? out : "not written";
}

TEST(SoapValue, TakesTheLexicalFormsOfEachTypeAndNothingElse) {
    const struct {
        XsdType type;
        std::vector<std::pair<const wchar_t*, const char*>> taken;
        std::vector<const wchar_t*> refused;
    } rows[] = {
        {XsdType::kString, {{L"", ""}, {L" a \n", " a &#x00000A;"}}, {}},
        {XsdType::kBoolean,
         {{L"true", "true"}, {L" 1\n", "true"}, {L"0", "false"}, {L"\tfalse", "false"}},
         {L"", L"TRUE", L"yes", L"2", L"t rue", L"01"}},
        {XsdType::kInt,
         {{L"2147483647", "2147483647"}, {L"-2147483648", "-2147483648"}, {L"\n+007 ", "7"}},
         {L"2147483648", L"-2147483649", L"", L"-", L"1.0", L"+-1", L"1 2", L"\u0661", L"0x1",
          L"99999999999999999999"}},
        {XsdType::kUnsignedInt,
         {{L"4294967295", "4294967295"}, {L"-0", "0"}, {L"00000000000000000000001", "1"}},
         {L"4294967296", L"-1", L"18446744073709551617"}},
    };
    for (const auto& row : rows) {
        const std::string name = testing::PrintToString(std::wstring(NameOf(row.type)));
        for (const auto& [text, out] : row.taken)
            EXPECT_EQ(Canonical(row.type, text), out) << name;
        for (const wchar_t* text : row.refused) {
            EXPECT_EQ(Canonical(row.type, text), "refused") << name << " " << testing::PrintToString(text);
        }
    }
}

TEST(SoapValue, IsNotWrittenAsAnotherType) {
    const SoapValue values[] = {SoapValue(std::wstring(L"1")), SoapValue(true), SoapValue(std::int32_t{1}),
                                SoapValue(std::uint32_t{1}),   SoapValue(),     SoapValue(SoapValues{})};
    const XsdType types[] = {XsdType::kString, XsdType::kBoolean, XsdType::kInt, XsdType::kUnsignedInt};
    for (size_t type = 0; type < std::size(types); ++type) {
        for (size_t value = 0; value < std::size(values); ++value) {
            std::string out;
            EXPECT_EQ(AppendValue(&out, types[type], values[value]), type == value) << type << " " << value;
            EXPECT_EQ(out.empty(), type != value);
        }
    }
}

}  // namespace
}  // namespace vlm
