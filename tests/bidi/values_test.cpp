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

// For every n: the n-th router allocation of a query and all after it fail.
TEST_F(TypedValues, EveryFailingAllocationEndsCleanly) {
    const auto engine = Engine({test::Extension("<Property name='P'><Const name='S'>text</Const>"
                                                "<Const name='I' type='BIDI_INT'>1</Const>"
                                                "<Const name='B' type='BIDI_BLOB'>*</Const></Property>")},
                               test::Answer(L""));
    for (const wchar_t* action : {L"Get", L"GetAll"}) {
        const test::Request request({L"\\P:S", L"\\P:I", L"\\unknown", L"\\P:B"});
        int failures = 0;
        for (LONG64 n = 1; n < 100; ++n) {
            router_.ResetAllocations(n);
            BIDI_RESPONSE_CONTAINER* container = nullptr;
            const HRESULT hr = engine->SendRecvBidiDataFromPort(action, request.Get(), &container);
            const LONG64 made = router_.Counters().allocations;
            router_.ResetAllocations(0);
            const test::Response response(container);
            if (hr != S_OK) {
                EXPECT_EQ(hr, E_FAIL);
                EXPECT_FALSE(response);
                EXPECT_EQ(router_.Counters().liveBlocks, before_.liveBlocks) << n;
                ++failures;
            } else if (made < n) {
                break;  // nothing failed
            }
        }
        // The container, four schema names and one string; a blob that gets no memory is just an entry
        // without value.
        EXPECT_EQ(failures, 6) << action;
    }
    EXPECT_TRUE(trace_.HasPart(L"CVelunBidiSpl::GetInitBidiResponseContainer(4) failed with status 8\r\n"));
    EXPECT_TRUE(trace_.Has(L"RouterAllocBidiMem(10) failed with status 8\r\n"));
    EXPECT_TRUE(trace_.Has(L"RouterAllocBidiMem(0) failed with status 8\r\n"));
}

}  // namespace
}  // namespace vlm
