#include "bidi/parameter_text.h"

#include <gtest/gtest.h>

namespace vlm {
namespace {

TEST(ParametersInText, AreReplacedInTurnAndKeepLiteralsWhole) {
    const Parameters bound{{L"A", L"x"}, {L"B", L"it's"}, {L"C", L"say \"it's\""}, {L"D", L"'] | //b[.='x"},
                           {L"E", L""},  {L"N", L"-1.5"}};
    const struct {
        const wchar_t* filter;
        const wchar_t* expected;
    } kCases[] = {
        {L"w:a[.='b']", L"w:a[.='b']"},
        {L"$A$", L"x"},
        {L"$A$$A$", L"xx"},
        {L"w:$A$[1]", L"w:x[1]"},
        {L"a[.>$N$]", L"a[.>-1.5]"},
        {L"a[.='$A$']", L"a[.='x']"},
        {L"a[.='$B$']", L"a[.=\"it's\"]"},
        {L"a[.=\"$B$\"]", L"a[.=\"it's\"]"},
        {L"a[.='no $B$, $A$']", L"a[.=\"no it's, x\"]"},
        {L"a[.='$C$']", L"a[.=concat('say \"it',\"'\",'s\"')]"},
        {L"a[.='$E$' and b='c']", L"a[.='' and b='c']"},
        {L"a$A", L"ax"},
        {L"a$", L"a"},
        {L"a[.='$B$", L"a[.='$B$"},
        {L"a[b=$A$ and .='$D$", L"a[b=$A$ and .='$D$"},
    };
    for (const auto& test : kCases) {
        const Replacement replaced = ReplaceInFilter(test.filter, bound);
        EXPECT_EQ(replaced.text, test.expected) << test.filter;
        EXPECT_EQ(replaced.problem, ReplaceProblem::kNone) << test.filter;
    }
    EXPECT_EQ(ReplaceInName(L"$A$ of '$B$'", bound).text, L"x of 'it's'");
}

TEST(ParametersInText, WriteNoExpressionOutsideOfLiterals) {
    const struct {
        const wchar_t* value;
        bool taken;
    } kValues[] = {
        {L"3", true},    {L"-3", true},     {L".5", true},          {L"Tray_1", true}, {L"\x00C4ther", true},
        {L"", false},    {L".", false},     {L"1.2.3", false},      {L"--1", false},   {L"1 or 1", false},
        {L"a:b", false}, {L"1e5", false},   {L"count(//*)", false}, {L"a b", false},   {L"'x'", false},
        {L"*", false},   {L"..", false},    {L"a/b", false},        {L"a|b", false},   {L"$A$", false},
        {L"1]", false},  {L"-Tray", false}, {L"\x2190", false},     {L"a\n", false},
    };
    for (const auto& test : kValues) {
        const Replacement replaced = ReplaceInFilter(L"w:a['quoted $V$' and .=$V$]", {{L"V", test.value}});
        EXPECT_EQ(replaced.problem, test.taken ? ReplaceProblem::kNone : ReplaceProblem::kNotPlain)
            << test.value;
        EXPECT_EQ(replaced.parameter, test.taken ? L"" : L"V");
        // In a literal anything goes.
        EXPECT_EQ(ReplaceInFilter(L"w:a[.='$V$']", {{L"V", test.value}}).problem, ReplaceProblem::kNone);
    }
    const Replacement unbound = ReplaceInFilter(L"w:a[.='$A$' or $B$]", {{L"A", L"x"}});
    EXPECT_EQ(unbound.problem, ReplaceProblem::kUndefined);
    EXPECT_EQ(unbound.parameter, L"B");
    EXPECT_EQ(ParametersOutsideLiterals(L"w:a[.='$A$' and $B$=\"it's $C$\" or $B$ > $D$][.='$']"),
              (std::vector<std::wstring>{L"B", L"D"}));
}

}  // namespace
}  // namespace vlm
