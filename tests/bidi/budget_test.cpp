// What a query may use: each kind of expense, and who is named when it runs out.
#include "bidi/query_budget.h"
#include "tests/bidi/engine_fixture.h"
#include "tests/support/text.h"
#include "util/text.h"

namespace vlm {
namespace {

using test::Extension;
using test::Repeat;

constexpr HRESULT kRunOut = HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA);

class Budget : public test::EngineTest {
 protected:
    // The first failure of a query for the whole tree.
    HRESULT Query(const std::vector<std::string>& files, const std::string& elements) {
        CVelunBidiSpl engine;
        const test::Request request({L"\\"});
        BIDI_RESPONSE_CONTAINER* response = nullptr;
        HRESULT hr = engine.Init(L"Office", FileList(files).c_str());
        if (hr == S_OK)
            hr = engine.SetGetPrinterElementResponseData(test::Answer(FromUtf8(elements)).c_str());
        if (hr == S_OK) hr = engine.SendRecvBidiDataFromPort(L"GetAll", request.Get(), &response);
        EXPECT_EQ(response != nullptr, hr == S_OK);
        reason_ = engine.Reason();
        if (response != nullptr) test::ResponseDeleter()(response);
        return hr;
    }

    std::wstring reason_;
};

TEST_F(Budget, RunsOutByNameAndNamesTheCause) {
    const std::string level =
        "<Parameter name='$A$' parameter='A' filter='w:N'><Parameter name='$B$' parameter='B' "
        "filter='w:N'><Const name='C'>c</Const></Parameter></Parameter>";
    const std::string text(200'000, 'x');
    const std::string nested = Repeat(80, "<wprt:N>") + text + Repeat(80, "</wprt:N>");
    const struct {
        const char* what;
        std::string file;
        std::string elements;
        const wchar_t* reason;
        std::vector<std::string> more = {};  // files
    } kCases[] = {
        {"instances", Extension(level), Repeat(1'000, "<wprt:N>x</wprt:N>"),
         L"elements that parameters make: "},
        {"instances of the level around",
         Extension("<Property name='$A$'><Parameter parameter='A' filter='w:N'/><Property name='$B$'>"
                   "<Parameter parameter='B' filter='w:N'/><Const name='C'>c</Const></Property></Property>"),
         Repeat(1'000, "<wprt:N>x</wprt:N>"),
         L"a query may use at most 100000 elements that parameters make: "},
        {"bound text", Extension(level), nested,
         L"characters that parameters bring: Parameter \"$B$\" with the filter"},
        {"text of the answer", Extension("<List name='Everything' filter='*'/>"), nested,
         L"characters of the response: List \"Everything\" with the filter \"*\" in "},
        {"paths of the answer",
         Extension(Repeat(60, "<Property name='" + std::string(60'000, 'p') + "'>") +
                   Repeat(10, "<Const name='C'>c</Const>") + Repeat(60, "</Property>")),
         "", L"characters of the response: Const \"C\" in "},
        {"one search", Extension("<Value name='V' filter='w:N[count(//*[count(//*)>1])>1]'/>"),
         Repeat(5'000, "<wprt:N/>"),
         L"one search of the printer's answer would take more than 20000000 units: Value \"V\" with the "
         L"filter"},
        {"many searches", Extension(Repeat(20, "<Value name='V' filter='w:N[count(//*)>5]'/>")),
         Repeat(1'500, "<wprt:N/>"), L"units of searching the printer's answer: Value \"V\" with the filter"},
        {"a filter's length",
         Extension(
             "<Parameter name='$A$' parameter='A' filter='w:N'><Value name='V' filter='w:N[.=\"$A$\"]'/>"
             "</Parameter>"),
         "<wprt:N>" + std::string(70'000, 'x') + "</wprt:N>",
         L"a filter may have at most 65536 characters with its parameters' values: Value \"V\""},
        {"Parameters within each other",
         Extension("<Property name='$A$'>" + Repeat(5'000, "<Parameter parameter='A' filter='w:N'/>") +
                   "</Property>"),
         "<wprt:N>1</wprt:N>", L"more than 100 Parameters within each other: Parameter"},
        {"elements of files",
         Extension(Repeat(60'000, "<Const/>")),
         "",
         L"elements of extension files: ",
         {Extension("<Property name='P'>" + Repeat(60'000, "<Const/>") + "</Property>")}},
        {"bytes of files",
         Extension("<!--" + std::string(7'000'000, 'x') + "-->"),
         "",
         L"bytes of extension files: ",
         {Extension("<!--" + std::string(7'000'000, 'y') + "-->"),
          Extension("<!--" + std::string(7'000'000, 'z') + "-->")}},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        std::vector<std::string> files = test.more;
        files.insert(files.begin(), test.file);
        EXPECT_EQ(Query(files, test.elements), kRunOut);
        EXPECT_NE(reason_.find(test.reason), std::wstring::npos);
        EXPECT_NE(reason_.find(L".xml"), std::wstring::npos);
    }
}

TEST_F(Budget, CountsOnlyTheTimeOfTheProcessor) {
    QueryBudget budget(std::chrono::milliseconds(50));
    const std::wstring path = L"\\Printer";
    Sleep(300);  // the printer's time
    EXPECT_NO_THROW(budget.CheckTime(path));
    try {
        for (const ULONGLONG begin = GetTickCount64(); GetTickCount64() - begin < 30'000;)
            budget.CheckTime(path);
        FAIL();
    } catch (const CComErrorEx& error) {
        EXPECT_EQ(error.Reason(), L"a query may work for at most 50 ms: \\Printer");
    }
}

TEST_F(Budget, ParameterOutsideQuotesIsANumberOrAName) {
    const std::string file = Extension(
        "<Parameter name='$A$' parameter='A' filter='w:P'><Value name='V' filter='w:N[$A$]'/></Parameter>");
    EXPECT_EQ(Query({file}, "<wprt:P>1</wprt:P><wprt:N>x</wprt:N>"), S_OK);
    EXPECT_EQ(Query({file}, "<wprt:P>count(//*)>0</wprt:P><wprt:N>x</wprt:N>"), E_FAIL);
    EXPECT_TRUE(
        reason_.starts_with(L"Parameter A in w:N[$A$] stands outside quotes, and its value \"count(//*)>0\" "
                            L"is neither a number nor a "
                            L"name: Value \"V\""));
}

}  // namespace
}  // namespace vlm
