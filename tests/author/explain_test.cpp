// Why a path is answered as it is: what an explanation says has to be what the engine does.
#include "tools/vlmctl/bidi/explanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "spooler/host/monitor_host.h"
#include "tests/util/temp_dir.h"
#include "util/text.h"

namespace vlm::ctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kHead[] =
    R"(<b:D xmlns:b="http://schemas.microsoft.com/windows/2005/03/printing/bidi"><Schema
 xmlns:pri="http://schemas.microsoft.com/windows/2006/08/wdp/print" xmlns:x="urn:x"><Property name="P">
)";
constexpr char kTail[] = "</Property></Schema></b:D>";
constexpr char kAnswer[] = R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"
 xmlns:w="http://schemas.microsoft.com/windows/2006/08/wdp/print"><s:Body><w:GetPrinterElementsResponse>
<w:PrinterElements><w:ElementData Name="w:PrinterStatus"><w:PrinterStatus><w:State>Idle</w:State><w:N>7 of 9</w:N>
<w:Bin Id="a b">1</w:Bin><w:Bin Id="c">2</w:Bin><w:Bin Id="e.f">3</w:Bin></w:PrinterStatus></w:ElementData>
<w:ElementData Name="w:PrinterConfiguration"><w:PrinterConfiguration><w:Size>4</w:Size></w:PrinterConfiguration>
</w:ElementData></w:PrinterElements></w:GetPrinterElementsResponse></s:Body></s:Envelope>)";

class ExplainTest : public testing::Test {
 protected:
    // Of an extension file with these leaves, on the answer; without one when that is empty.
    Explanation Of(const std::string& leaves, const std::string& path, const std::string& answer = kAnswer) {
        const BidiSources sources{{ToUtf8(folder_.Write(L"e.xml", kHead + leaves + kTail))},
                                  answer.empty() ? "" : ToUtf8(folder_.Write(L"a.xml", answer)),
                                  "",
                                  false};
        return Explain(sources, path);
    }

 private:
    const test::TempDir folder_;
};

TEST_F(ExplainTest, EndsWithWhatGetAnswersForEveryLeafOfTheExamples) {
    const std::string folder = ToUtf8(host::BesideProgram(L"examples"));
    const BidiSources sources{{folder + "/velun-base.xml", folder + "/velun-finisher.xml"},
                              folder + "/printer-answer.xml",
                              "",
                              false};
    const std::vector<BidiAnswer> leaves = AskEngine(sources, L"GetAll", {"\\"});
    ASSERT_GT(leaves.size(), 70U);
    for (const BidiAnswer& leaf : leaves) {
        SCOPED_TRACE(leaf.path);
        const Explanation explanation = Explain(sources, leaf.path);
        EXPECT_EQ(explanation.answer, AskEngine(sources, L"Get", {leaf.path}).front());
        EXPECT_EQ(explanation.verdict == Verdict::kFound, leaf.result == 0);
        // Each name of the path comes from a line of a file, and the last step has found the value.
        std::string path = "\\";
        for (const Step& step : explanation.steps) {
            EXPECT_GT(step.declared.line, 1) << step.name;
            path += (path == "\\" ? "" : &step == &explanation.steps.back() ? ":" : ".") + step.name;
            for (const BindingStep& binding : step.bindings)
                EXPECT_EQ(binding.search.found.at(binding.node.value()), step.name);
        }
        EXPECT_EQ(path, leaf.path);
        const Step& last = explanation.steps.back();
        if (last.declared.element == "Value") {
            EXPECT_EQ(last.search->found.front(), explanation.text);
        }
        if (last.declared.element == "Installed") {
            EXPECT_EQ(leaf.value == "true", last.search->count > 0);
        }
        if (last.declared.element == "List") {
            EXPECT_EQ(last.search->count > 0, leaf.result == 0);
        }
    }
}

TEST_F(ExplainTest, TellsTheReasonsForNoValueApart) {
    const auto value = [](const std::string& filter, const std::string& query = "query='pri:PrinterStatus'") {
        return "<Value name='V' " + query + " filter=\"" + filter + "\"/>";
    };
    const auto parameter = [](const std::string& filter, const std::string& query = "pri:PrinterStatus",
                              const std::string& leaf = "<Const name='V'/>") {
        return "<Parameter name='$B$' parameter='B' query='" + query + "' filter='" + filter + "'>" + leaf +
               "</Parameter>";
    };
    const std::string state = value("pri:State");
    const std::string bins = parameter("pri:Bin/@Id");
    const struct {
        std::string leaves;
        const char* path;
        Verdict verdict;
        const char* why;
    } cases[] = {
        {value("pri:PrinterStatus/pri:State"), "\\P:V", Verdict::kFound, "found"},
        {state, "\\P:W", Verdict::kNotInFiles, "no 'W' there"},
        {state, "\\Q:V", Verdict::kNotInFiles, "no 'Q' there"},
        {state, "\\P", Verdict::kLevel, "a level"},
        {state, "P:V", Verdict::kOtherSchema, "spelled differently"},
        {value("pri:PrinterStatus/pri:State", ""), "\\P:V", Verdict::kNotAsked, "not asked for anything"},
        {value("pri:PrinterConfiguration/pri:Size"), "\\P:V", Verdict::kNotAsked,
         "reads pri:PrinterConfiguration, which no query"},
        {value("pri:Size"), "\\P:V", Verdict::kNotAsked, "the saved answer holds"},
        {value("x:Extra/x:A", "query='x:Extra'"), "\\P:V", Verdict::kNotSent, "did not send x:Extra"},
        {value("pri:PrinterStatus/pri:Mood"), "\\P:V", Verdict::kNothingFound, "finds nothing"},
        {value("pri:N", "query='pri:PrinterStatus' type='BIDI_WORD'"), "\\P:V", Verdict::kNoConversion,
         "type BIDI_WORD is unknown"},
        {value("pri:State", "query='pri:PrinterStatus' type='BIDI_BLOB'"), "\\P:V", Verdict::kNoConversion,
         "no binary values"},
        {bins, "\\P.c:V", Verdict::kFound, "found"},
        {bins, "\\P.d:V", Verdict::kNotMade, "makes no level 'd'"},
        {bins, "\\P.e.f:V", Verdict::kNotAsked, "only a query for the whole tree"},
        {bins, "\\P.c:W", Verdict::kNotInFiles, "no 'W' there"},
        {parameter("pri:Tray"), "\\P.c:V", Verdict::kNothingFound, "finds nothing"},
        {parameter("x:Tray", "x:Extra"), "\\P.c:V", Verdict::kNotSent, "did not send x:Extra"},
        // What fails the whole query.
        {value("pri:State[.='$C$']"), "\\P:V", Verdict::kFailed, "Parameter C"},
        {value("pri:State["), "\\P:V", Verdict::kFailed, "pri:State["},
        {value("pri:State", "query='y:PrinterStatus'"), "\\P:V", Verdict::kFailed, "declaration for y"},
        {parameter("pri:Bin/@Id", "pri:PrinterStatus", "<Value name='V' filter='pri:Bin[$B$]'/>"), "\\P.c:V",
         Verdict::kFailed, "neither a number nor a name"},
        {value("//*[count(//*[count(//*[count(//*[count(//*[count(//*)>0])>0])>0])>0])>0]"), "\\P:V",
         Verdict::kFailed, "units"},
        {state, "\\it's", Verdict::kFailed, "apostrophe"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.leaves + " " + expected.path);
        const Explanation explanation = Of(expected.leaves, expected.path);
        EXPECT_EQ(explanation.verdict, expected.verdict) << VerdictName(explanation.verdict);
        EXPECT_THAT(explanation.why, HasSubstr(expected.why));
        EXPECT_EQ(explanation.answer.result == 0 && explanation.verdict != Verdict::kFailed,
                  expected.verdict == Verdict::kFound);
    }
}

TEST_F(ExplainTest, TellsWithoutAnAnswerWhatTheFilesDeclare) {
    const std::string leaves =
        "<Property name='$I$'><Parameter parameter='I' query='pri:PrinterStatus' filter='pri:Bin/@Id'/>\n"
        "<Value name='V' filter=\"pri:Bin[@Id='$I$']\"/></Property>";
    const Explanation explanation = Of(leaves, "\\P.c:V", "");
    EXPECT_EQ(explanation.verdict, Verdict::kDeclared);
    EXPECT_FALSE(explanation.asked);
    ASSERT_EQ(explanation.steps.size(), 3U);
    ASSERT_EQ(explanation.steps[1].bindings.size(), 1U);
    EXPECT_EQ(explanation.steps[1].bindings[0].search.query, "pri:PrinterStatus");
    EXPECT_EQ(explanation.steps[1].bindings[0].search.sent, std::nullopt);
    EXPECT_EQ(explanation.steps[2].search->filter, "pri:Bin[@Id='$I$']");
    EXPECT_FALSE(explanation.steps[2].search->tried);
    EXPECT_EQ(explanation.steps[2].declared.line, 4);

    const Explanation missing = Of(leaves, "\\P.I:W", "");
    EXPECT_EQ(missing.verdict, Verdict::kNotInFiles);
    EXPECT_THAT(missing.nearest, ElementsAre("\\P.$I$:V"));
}

}  // namespace
}  // namespace vlm::ctl
