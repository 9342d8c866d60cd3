// Error reports and the trace.
#include <gtest/gtest.h>

#include <string>

#include "tests/util/trace_capture.h"
#include "util/comerror.h"
#include "util/splssmgr.h"
#include "util/trace.h"

namespace vlm {
namespace {

TEST(ErrorReport, NamesErrorFileAndLine) {
    const struct {
        unsigned hr;
        const char* path;
        unsigned line;
        const wchar_t* expected;
    } kCases[] = {
        // The first code without a message of the system's is no dispatch error: those count from 1.
        {0x80040200, "vlxml", 7, L"Unknown error 0x80040200 (file=vlxml, line=7)\r\n"},
        {0x80040201, "c:\\src\\vlxml", 8, L"IDispatch error #1 (file=vlxml, line=8)\r\n"},
        {0x8004FFFF, "\\vlutil", 9, L"IDispatch error #65023 (file=vlutil, line=9)\r\n"},
        {0x80050001, "dir/velunbidispl", 10,
         L"Unknown error 0x80050001 (file=dir/velunbidispl, line=10)\r\n"},
        {0x80072EFD, "", 0, L"Unknown error 0x80072EFD (file=, line=0)\r\n"},
    };
    for (const auto& test : kCases) {
        const CComErrorEx error(static_cast<HRESULT>(test.hr), test.path, test.line);
        EXPECT_STREQ(error.Message(), test.expected);
        EXPECT_EQ(error.Error(), static_cast<HRESULT>(test.hr));
        EXPECT_EQ(error.Line(), test.line);
    }
}

TEST(ErrorReport, SystemMessageLosesItsLineEnd) {
    const CComErrorEx error(E_ACCESSDENIED, "vlxml", 3);
    const std::wstring message = error.Message();
    const size_t position = message.find(L" (file=vlxml, line=3)\r\n");
    ASSERT_NE(position, std::wstring::npos);
    EXPECT_GT(position, 0u);
    EXPECT_EQ(message.find_first_of(L"\r\n"), message.size() - 2);
}

TEST(Format, GrowsToTheTextAndReportsWhatCannotBeFormatted) {
    _bstr_t_ex text;
    const std::wstring long_(10'000, L'x');
    Format(text, L"%ls-%d", long_.c_str(), 5);
    EXPECT_EQ(text.Text(), long_ + L"-5");
    try {
        Format(text, nullptr);
        FAIL();
    } catch (const CComErrorEx& error) {
        EXPECT_STREQ(error.File(), "vlutil");
        EXPECT_EQ(error.Line(), 28u);
    }
}

TEST(TraceOutput, ComesInOnePieceAndKeepsTheLastError) {
    const test::TraceCapture trace;
    SetLastError(0xdeadbeef);
    Trace(L"%ls and %d\r\n", L"text", 7);
    Trace(L"%ls\r\n", std::wstring(100'000, L'x').c_str());  // cannot be formatted: writes nothing
    EXPECT_EQ(GetLastError(), 0xdeadbeef);
    EXPECT_EQ(trace.Texts(), std::vector<std::wstring>{L"text and 7\r\n"});
}

TEST(TraceOutput, TextFromOutsideIsMadePrintable) {
    const struct {
        std::wstring text;
        std::wstring expected;
    } kCases[] = {
        {L"plain \x00E9 \x4E2D", L"plain \x00E9 \x4E2D"},
        {L"a\r\nb\tc\x1B[31m", L"a??b?c?[31m"},
        {L"pair \xD83D\xDE00", L"pair \xD83D\xDE00"},
        {L"lone \xD83D and \xDE00", L"lone ? and ?"},
        {L"separators \x2028\x2029\x0085", L"separators ???"},
        {std::wstring(300, L'x'), std::wstring(256, L'x') + L"..."},
    };
    for (const auto& test : kCases)
        EXPECT_EQ(Printable(test.text), test.expected);
}

TEST(RouterLoader, DoesNothingBeforeItIsLoaded) {
    CSplssMgr router;
    EXPECT_EQ(router.AllocBidiMem(8), nullptr);
    EXPECT_EQ(router.AllocBidiResponseContainer(1), nullptr);
    router.FreeBidiMem(&router);
    EXPECT_FALSE(router.Unload());
}

}  // namespace
}  // namespace vlm
