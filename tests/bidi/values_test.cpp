// Typed values and result codes, as they arrive in a response container.
#include <clocale>

#include "tests/bidi/engine_fixture.h"

namespace vlm {
namespace {

using Response_ = test::Response;

class TypedValues : public test::EngineTest {};

TEST_F(TypedValues, PointIsAPointInEveryLocale) {
    const std::string before = setlocale(LC_ALL, nullptr);
    ASSERT_NE(setlocale(LC_ALL, "German"), nullptr);
    const auto engine =
        Engine({test::Extension("<Const name='C' type='BIDI_FLOAT'>1.5</Const>")}, test::Answer(L""));
    const Response_ response = Ask(*engine, L"GetAll", {L"\\"});
    setlocale(LC_ALL, before.c_str());
    ASSERT_TRUE(response);
    EXPECT_EQ(response->aData[0].data.u.fData, 1.5F);
}

TEST_F(TypedValues, TextBecomesTheDeclaredType) {
    const struct {
        const char* declaration;
        const wchar_t* expected;  // what follows the schema name
        DWORD result;
    } kCases[] = {
        {"type='BIDI_INT'>42<", L"INT 42", 0},
        {"type='BIDI_INT'> -7 pages<", L"INT -7", 0},
        {"type='BIDI_INT'>+9<", L"INT 9", 0},
        {"type='BIDI_INT'>none<", L"INT 0", 0},
        {"type='BIDI_INT'><", L"INT 0", 0},
        {"type='BIDI_INT'>99999999999<", L"INT 2147483647", 0},
        {"type='BIDI_FLOAT'>2.5<", L"FLOAT 2.500000", 0},
        {"type='BIDI_FLOAT'> +1.25e1 W<", L"FLOAT 12.500000", 0},
        {"type='BIDI_FLOAT'>-3,5<", L"FLOAT -3.000000", 0},
        {"type='BIDI_FLOAT'>-1e999<", L"FLOAT -inf", 0},
        {"type='BIDI_FLOAT'>1e-999<", L"FLOAT 0.000000", 0},
        {"type='BIDI_FLOAT'>abc<", L"FLOAT 0.000000", 0},
        {"type='BIDI_BOOL'>true<", L"BOOL TRUE", 0},
        // Only the exact text is true.
        {"type='BIDI_BOOL'>TRUE<", L"BOOL FALSE", 0},
        {"type='BIDI_BOOL'>1<", L"BOOL FALSE", 0},
        {"type='BIDI_STRING'> Velun &amp; Co <", L"STRING Velun & Co", 0},
        {"type='BIDI_STRING'><", L"STRING ", 0},
        {">no type<", L"STRING no type", 0},
        // The blob decoder takes the platform's success for failure: well-formed base64 has no bytes, and
        // what is not base64 at all is an empty blob.
        {"type='BIDI_BLOB'>aGVsbG8=<", L"BLOB", 232},
        {"type='BIDI_BLOB'>not*base64?<", L"BLOB", 0},
        // No result of these types is ever looked for.
        {"type='BIDI_ENUM'>x<", L"NULL", 232},
        {"type='bidi_int'>5<", L"NULL", 232},
        {"type='no such type'>5<", L"NULL", 232},
        {"type=''>5<", L"NULL", 232},
    };
    for (const auto& test : kCases) {
        const auto engine =
            Engine({test::Extension("<Const name='C' " + std::string(test.declaration) + "/Const>")},
                   test::Answer(L""));
        const std::wstring expected = L"100 " + std::to_wstring(test.result) + L" \\:C " + test.expected;
        EXPECT_EQ(Lines(*engine, L"GetAll", {L"\\:C"}), std::vector<std::wstring>{expected})
            << test.declaration;
    }
    EXPECT_TRUE(trace_.HasPart(L"CryptStringToBinary() failed with status "));
}

// What follows from memory that runs out in a whole query is tested through a port.
TEST_F(TypedValues, AnswerWithoutMemoryFailsAndABlobWithoutItIsAnEntryWithoutValue) {
    const auto engine =
        Engine({test::Extension("<Const name='B' type='BIDI_BLOB'>*</Const>")}, test::Answer(L""));
    router_.ResetAllocations(1);
    Ask(*engine, L"Get", {L"\\B"}, E_FAIL);
    EXPECT_TRUE(trace_.HasPart(L"CVelunBidiSpl::GetInitBidiResponseContainer(1) failed with status 8\r\n"));
    router_.ResetAllocations(3);  // behind the container and the name
    EXPECT_EQ(Lines(*engine, L"Get", {L"\\B"}), std::vector<std::wstring>{L"100 232 \\B BLOB"});
    EXPECT_TRUE(trace_.Has(L"RouterAllocBidiMem(0) failed with status 8\r\n"));
}

}  // namespace
}  // namespace vlm
