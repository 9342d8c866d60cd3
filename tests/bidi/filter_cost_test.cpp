#include "bidi/filter_cost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "tests/support/text.h"

namespace vlm {
namespace {

using test::Repeat;

constexpr double kSecond = 10'000'000;  // in the estimate's units

// So many levels of what opens predicates, and their ends.
std::wstring Nested(const std::wstring& opening, size_t levels) {
    const auto open = static_cast<size_t>(std::count(opening.begin(), opening.end(), L'[') -
                                          std::count(opening.begin(), opening.end(), L']'));
    std::wstring text;
    for (size_t i = 0; i < levels; ++i)
        text += opening;
    return text + L"1" + std::wstring(levels * open, L']');
}

double Estimate(const std::wstring& xpath, const std::string& document) {
    return EstimateWork(xpath, ShapeOf(document)).value_or(-1);
}

TEST(AnswerShape, CountsWhatADocumentIsMadeOf) {
    const AnswerShape shape =
        ShapeOf("<?xml version='1.0'?><a x='1' xmlns:p='u'>t<p:b><c/>text</p:b><c y='>'>more</c></a>");
    EXPECT_EQ(shape.depth, 3u);
    EXPECT_EQ(shape.widest, 3u);
    EXPECT_EQ(shape.attributes, 3u);
    EXPECT_EQ(shape.all.count, 4u);
    EXPECT_EQ(shape.text, 9u + 21u);  // what stands in front of the root counts, too
    EXPECT_EQ(shape.byName.at("b").count, 1u);
    EXPECT_EQ(shape.byName.at("b").text, 4u);
    EXPECT_EQ(shape.byName.at("b").nodes, 2u);
    EXPECT_EQ(shape.byName.at("c").count, 2u);
    EXPECT_EQ(shape.byName.at("c").text, 4u);
    EXPECT_EQ(shape.byName.at("a").text, 9u);
}

// What was measured to take seconds or hours must come out as more than a second, and what a real extension
// file asks of a large device as little.
TEST(FilterCost, TellsSearchesThatEndFromThoseThatDoNot) {
    const std::string flat = "<r>" + Repeat(19'000, "<c/>") + "</r>";
    const std::string conditions =
        "<s><a>" + Repeat(600, "<d Id='1'><t>2026</t><n>One</n><n>Two</n><n>Three</n><k>P</k></d>") +
        "</a></s>";
    const std::string nested =
        "<r>" + Repeat(85, "<n>") + std::string(1'000'000, 'x') + Repeat(85, "</n>") + "</r>";
    const std::string columns = "<r>" + Repeat(200, Repeat(90, "<d>") + Repeat(90, "</d>")) + "</r>";
    const struct {
        const wchar_t* xpath;
        const std::string& document;
        double least;
        double most;
    } kCases[] = {
        {L"//c", flat, 0, 0.1 * kSecond},
        {L"//c[@id='7']/k", flat, 0, 0.1 * kSecond},
        {L"//c[preceding-sibling::c]", flat, kSecond, 1e300},
        {L"//c[preceding-sibling::x]", flat, kSecond, 1e300},  // what is not there is looked for all the same
        {L"//c/preceding-sibling::c", flat, 1'000 * kSecond, 1e300},
        {L"//c/following::c", flat, 1'000 * kSecond, 1e300},
        {L"//c[count(//c)>1]", flat, kSecond, 1e300},
        {L"//c[//c[.='x']]", flat, kSecond, 1e300},
        {L"//c[count(//*[count(//*)>1])>1]", flat, 10'000 * kSecond, 1e300},
        {L"//c = //c", flat, 0, kSecond},
        {L"//c[. = //c]", flat, kSecond, 1e300},
        {L"//node()//x", columns, kSecond, 1e300},
        {L"//c | //c | //c", flat, kSecond, 1e300},
        {L"//d[not(k=preceding-sibling::*/k)]/k", conditions, 0, kSecond},
        {L"//s/a/d[@Id='7']/n", conditions, 0, 0.01 * kSecond},
        {L"//s//d[k='P']//n", conditions, 0, kSecond},
        {L"//d/../d[last()]", conditions, 0, kSecond},
        {L"//*[contains(., 'xxxxxxxxxxxxxxy')]", nested, kSecond, 1e300},
        {L"//*[translate(., 'abcdefghijklmnop', 'ABCDEFGHIJKLMNOP')='']", nested, kSecond, 1e300},
        {L"//r[concat(.,.,.,.,.,.,.,.,.,.,.,.,.,.,.,.)='']", nested, kSecond, 1e300},
        {L"//r[.='x']", nested, 0, 0.1 * kSecond},
        {L"//..//node()", nested, 0, kSecond},
    };
    for (const auto& test : kCases) {
        const double work = Estimate(test.xpath, test.document);
        EXPECT_GE(work, test.least) << test.xpath;
        EXPECT_LE(work, test.most) << test.xpath;
    }
}

TEST(FilterCost, ReadsXPathAndNothingElse) {
    for (const wchar_t* xpath :
         {L"//a", L"//p:a/p:*", L"//*", L"//@x", L"//a/@p:x", L"//a[1][last()]", L"//.", L"//..",
          L"//a/./b/../c", L"//child::a/descendant-or-self :: node()", L"//text()",
          L"//processing-instruction('x')", L"//comment( )", L"//a[b and c or not(d)]",
          L"//and[or]/div[mod div 2 mod 3]", L"//a[-1 < - - 2]", L"//a[.5 >= 1. ]", L"//a[b * c]",
          L"//*[* * *]", L"//a[count(b|c) != 2]", L"//a[(b)[1]/c]", L"//a[\"'\"]",
          L"//a[starts-with(@x , 'y')]", L"//a[p:f(1,2)]", L"//a[/]", L"//a[/ = 'x']", L"//a[//b]",
          L"//a | //b", L"//a-b.c[x-y]", L"//\x00E4[.='\x20AC']", L"///a",
          // No XPath, but there are evaluators that run it.
          L"//a[3 div4]", L"//a[1e5 > 8E/b]", L" // a [ b ] "}) {
        EXPECT_GE(Estimate(xpath, "<a/>"), 0) << xpath;
    }
    for (const wchar_t* other : {L"",          L"//",    L"//a[",    L"//a]",        L"//a[]",    L"//a['b]",
                                 L"//a[b",     L"//a(",  L"//a b",   L"//a[$x]",     L"//foo::a", L"//a:",
                                 L"//a::b",    L"//@",   L"//a[f(]", L"//a[f(1,]",   L"//a[(b]",  L"//a[= b]",
                                 L"//a[b = ]", L"//a |", L"//a#b",   L"//a['it''']", L"//a[!b]",  L"//[a]"}) {
        EXPECT_EQ(Estimate(other, "<a/>"), -1) << other;
    }
    EXPECT_EQ(Estimate(Nested(L"//a[", 100'000), "<a/>"), -1) << "the stack has an end";
}

// What is no number compares as less than any limit.
TEST(FilterCost, IsANumberHoweverSearchesMultiply) {
    const std::string flat = "<r>" + Repeat(19'000, "<c/>") + "</r>";
    for (const std::wstring& xpath :
         {Nested(L"//*[", 99), Nested(L"//*[//none = //*][", 99), Nested(L"//*[following::none[//*[", 33)}) {
        const double work = Estimate(xpath, flat);
        EXPECT_TRUE(std::isfinite(work) && work >= 0) << work << ' ' << testing::PrintToString(xpath);
    }
}

}  // namespace
}  // namespace vlm
