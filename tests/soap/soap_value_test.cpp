#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <random>

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
        {XsdType::kNormalizedString, {{L"\ta\n", " a "}}, {}},
        {XsdType::kToken, {{L" a \t b ", "a b"}, {L"", ""}}, {}},
        {XsdType::kLanguage,
         {{L"de-CH-1901", "de-CH-1901"}},
         {L"", L"1a", L"a-", L"-a", L"abcdefghi", L"a b"}},
        {XsdType::kName,
         {{L"a:b", "a:b"}, {L"\u00e4-1", "&#x0000E4;-1"}},
         {L"", L"1a", L"-a", L"a b", L"a\u00d7"}},
        {XsdType::kNcName, {{L"_a", "_a"}}, {L"a:b", L""}},
        {XsdType::kNmtoken, {{L"1-a", "1-a"}}, {L"", L"a/b"}},
        {XsdType::kNmtokens, {{L" 1  2\n3 ", "1 2 3"}}, {L"", L" "}},
        {XsdType::kId, {{L"a", "a"}}, {L"1"}},
        {XsdType::kIdref, {{L"a", "a"}}, {L"a b"}},
        {XsdType::kIdrefs, {{L"a b", "a b"}}, {L"a 1"}},
        {XsdType::kEntity, {{L"a", "a"}}, {L""}},
        {XsdType::kEntities, {{L"a b", "a b"}}, {L""}},
        {XsdType::kQName, {{L"p:a", "p:a"}, {L"a", "a"}}, {L":a", L"p:", L"p:a:b", L""}},
        {XsdType::kNotation, {{L"p:a", "p:a"}}, {L"p:1"}},
        {XsdType::kAnyUri, {{L" http://p/?a&b ", "http://p/?a&amp;b"}}, {}},
        {XsdType::kBoolean,
         {{L"true", "true"}, {L" 1\n", "true"}, {L"0", "false"}, {L"\tfalse", "false"}},
         {L"", L"TRUE", L"yes", L"2", L"t rue", L"01"}},
        {XsdType::kFloat,
         {{L"1.5", "1.5"}, {L"-INF", "-INF"}, {L"NaN", "NaN"}, {L"+1E2", "100"}, {L".5", "0.5"}},
         {L"", L"inf", L"+INF", L"0x1", L"1e", L"1,5", L"1e99", L"nan", L".", L"++1", L"+-1"}},
        {XsdType::kDouble,
         {{L"0.1", "0.1"}, {L"-1e-300", "-1e-300"}, {L"INF", "INF"}},
         {L"1e999", L"1.5.5", L" "}},
        {XsdType::kDecimal,
         {{L"-0.50", "-0.50"}, {L"+1.", "+1."}, {L".5", ".5"}},
         {L"", L".", L"1e2", L"INF", L"- 1"}},
        {XsdType::kInteger,
         {{L"-123456789012345678901234567890", "-123456789012345678901234567890"}, {L"+0", "+0"}},
         {L"", L"1.0", L"1e2", L"-", L"\u0661"}},
        {XsdType::kNonPositiveInteger, {{L"-1", "-1"}, {L"0", "0"}, {L"+0", "+0"}}, {L"1", L""}},
        {XsdType::kNegativeInteger, {{L"-1", "-1"}}, {L"0", L"-0", L"1"}},
        {XsdType::kNonNegativeInteger, {{L"1", "1"}, {L"-0", "-0"}}, {L"-1", L""}},
        {XsdType::kPositiveInteger, {{L"+1", "+1"}}, {L"0", L"-1"}},
        {XsdType::kLong,
         {{L"-9223372036854775808", "-9223372036854775808"}, {L"+007", "7"}},
         {L"9223372036854775808", L"-9223372036854775809", L"", L"1.0"}},
        {XsdType::kInt,
         {{L"2147483647", "2147483647"}, {L"-2147483648", "-2147483648"}},
         {L"2147483648", L"-2147483649"}},
        {XsdType::kShort, {{L"-32768", "-32768"}}, {L"32768"}},
        {XsdType::kByte, {{L"127", "127"}, {L"-128", "-128"}}, {L"128", L"-129"}},
        {XsdType::kUnsignedLong,
         {{L"18446744073709551615", "18446744073709551615"}, {L"-0", "0"}},
         {L"18446744073709551616", L"-1"}},
        {XsdType::kUnsignedInt, {{L"4294967295", "4294967295"}}, {L"4294967296", L"-1", L"+-1"}},
        {XsdType::kUnsignedShort, {{L"65535", "65535"}}, {L"65536"}},
        {XsdType::kUnsignedByte, {{L" 255 ", "255"}}, {L"256", L"0x1"}},
        {XsdType::kHexBinary, {{L"", ""}, {L" 00fFa1 ", "00FFA1"}}, {L"0", L"0g", L"00 11"}},
        {XsdType::kBase64Binary,
         {{L"", ""}, {L"aGVs bG8=", "aGVsbG8="}, {L"/+8=", "/+8="}, {L"AA==", "AA=="}},
         {L"a", L"aGVsbG8", L"aGVsbG9=", L"====", L"a===", L"aG=s", L"aGV*", L"AB=="}},
        {XsdType::kDuration,
         {{L"P1Y2M3DT4H5M6.7S", "P1Y2M3DT4H5M6.7S"}, {L"-PT0S", "-PT0S"}, {L"P1D", "P1D"}},
         {L"P", L"PT", L"P1", L"1Y", L"P1YT", L"P1M2Y", L"P-1Y", L"PT1.S", L"P1.5Y", L"P1H", L"+P1D",
          L"P1DT1D"}},
        {XsdType::kDateTime,
         {{L"2026-11-21T23:59:59.5+14:00", "2026-11-21T23:59:59.5+14:00"},
          {L"-12026-02-28T24:00:00Z", "-12026-02-28T24:00:00Z"}},
         {L"2026-11-21", L"2026-11-21T24:00:01", L"2026-11-21T24:00:00.1", L"2026-02-29T00:00:00",
          L"1900-02-29T00:00:00", L"2026-11-21T23:59:60", L"2026-11-21T23:59:59+14:01", L"2026-11-21T1:00:00",
          L"0000-01-01T00:00:00", L"02026-01-01T00:00:00", L"+2026-01-01T00:00:00", L"2026-11-21T23:59:59z",
          L"2026-11-21 23:59:59"}},
        {XsdType::kTime,
         {{L"00:00:00", "00:00:00"}, {L"12:30:00-05:00", "12:30:00-05:00"}},
         {L"12:30", L"25:00:00", L"12:60:00"}},
        {XsdType::kDate,
         {{L"2000-02-29", "2000-02-29"}, {L"2026-12-31Z", "2026-12-31Z"}},
         {L"2026-13-01", L"2026-00-01", L"2026-04-31", L"26-01-01", L"2026-1-1"}},
        {XsdType::kGYearMonth, {{L"2026-11", "2026-11"}}, {L"2026", L"2026-13"}},
        {XsdType::kGYear, {{L"2026+01:00", "2026+01:00"}}, {L"26", L"0000"}},
        {XsdType::kGMonthDay, {{L"--02-29", "--02-29"}}, {L"--02-30", L"-02-29", L"02-29"}},
        {XsdType::kGDay, {{L"---31", "---31"}}, {L"--31", L"---32", L"---00"}},
        {XsdType::kGMonth, {{L"--12", "--12"}}, {L"--13", L"-12", L"--12--"}},
    };
    EXPECT_EQ(std::size(rows), static_cast<size_t>(XsdType::kGMonth) + 1) << "a type without a row";
    for (const auto& row : rows) {
        const std::string name = testing::PrintToString(std::wstring(NameOf(row.type)));
        for (const auto& [text, out] : row.taken)
            EXPECT_EQ(Canonical(row.type, text), out) << name;
        for (const wchar_t* text : row.refused) {
            EXPECT_EQ(Canonical(row.type, text), "refused") << name << " " << testing::PrintToString(text);
        }
    }
}

TEST(SoapValue, IsNotWrittenAsATypeThatCannotHoldIt) {
    const std::pair<XsdType, SoapValue> rows[] = {
        {XsdType::kString, SoapValue()},
        {XsdType::kString, SoapValue(true)},
        {XsdType::kBoolean, SoapValue(std::wstring(L"true"))},
        {XsdType::kInt, SoapValue(std::int64_t{1} << 31)},
        {XsdType::kInt, SoapValue(std::uint64_t{1})},
        {XsdType::kUnsignedByte, SoapValue(std::uint64_t{256})},
        {XsdType::kUnsignedByte, SoapValue(std::int64_t{1})},
        {XsdType::kDecimal, SoapValue(1.5)},
        {XsdType::kDate, SoapValue(std::wstring(L"tomorrow"))},
        {XsdType::kHexBinary, SoapValue(std::wstring(L"00"))},
        {XsdType::kFloat, SoapValue(std::int64_t{1})},
    };
    for (const auto& [type, value] : rows) {
        std::string out;
        EXPECT_FALSE(AppendValue(&out, type, value)) << testing::PrintToString(std::wstring(NameOf(type)));
    }
}

TEST(SoapValue, KeepsBytesAndNumbersExactly) {
    std::mt19937_64 random(6);
    for (int round = 0; round < 500; ++round) {
        std::vector<std::byte> bytes(random() % 20);
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(random());
        const double number = std::bit_cast<double>(random());
        const std::pair<XsdType, SoapValue> values[] = {
            {XsdType::kBase64Binary, SoapValue(bytes)},
            {XsdType::kHexBinary, SoapValue(bytes)},
            {XsdType::kDouble, SoapValue(number)},
            {XsdType::kLong, SoapValue(static_cast<std::int64_t>(random()))}};
        for (const auto& [type, value] : values) {
            std::string out;
            SoapValue back;
            ASSERT_TRUE(AppendValue(&out, type, value));
            ASSERT_TRUE(ParseValue(type, std::wstring(out.begin(), out.end()), &back)) << out;
            const bool isNan = type == XsdType::kDouble && number != number;
            ASSERT_TRUE(isNan || back == value) << out;
        }
    }
}

}  // namespace
}  // namespace vlm
