// A first extension file is in order, and answers everything that the printer said.
#include "tools/vlmctl/bidi/new_extension.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "soap/printer_elements.h"
#include "tests/util/temp_dir.h"
#include "tools/vlmctl/bidi/answer_check.h"
#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/extension_files/check.h"
#include "util/text.h"
#include "util/xml_text.h"

namespace vlm::ctl {
namespace {

using testing::IsEmpty;

// An answer with these elements, each in its part; "w" is the print service's prefix.
std::string Answer(const std::vector<std::string>& elements) {
    std::string answer =
        R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:v="urn:vendor"
 xmlns:w="http://schemas.microsoft.com/windows/2006/08/wdp/print"><s:Body><w:GetPrinterElementsResponse>
<w:PrinterElements>)";
    for (const std::string& element : elements) {
        const std::string name = element.substr(1, element.find_first_of(" >/", 1) - 1);
        answer += "<w:ElementData Name=\"" + name + "\" Valid=\"true\">" + element + "</w:ElementData>\n";
    }
    return answer + "</w:PrinterElements></w:GetPrinterElementsResponse></s:Body></s:Envelope>";
}

class NewExtensionTest : public testing::Test {
 protected:
    // What the new file for this answer gives for the whole tree, after a look at what the checker says.
    std::vector<BidiAnswer> All(const std::string& answer) {
        const ComApartment apartment(COINIT_MULTITHREADED);
        std::string clean;
        const Outcome cleaned = CleanPrinterElements(
            answer, {{L"pri", L"http://schemas.microsoft.com/windows/2006/08/wdp/print"}}, &clean);
        EXPECT_EQ(cleaned.code, S_OK) << ToUtf8(cleaned.reason);
        file_ = MakeExtension(clean, "a.xml");
        const BidiSources sources{{Write(L"e.xml", file_.xml)}, Write(L"a.xml", answer), "", false};
        CheckReport report = CheckExtensionFiles({FromUtf8(sources.extensions.front())});
        FindingList more;
        CheckWithAnswer(sources, more);
        report.Add(more.Take());
        for (const Finding& finding : report.findings)
            ADD_FAILURE() << finding.place.line << ": " << ToUtf8(finding.text) << "\n"
                          << file_.xml << answer;
        return AskEngine(sources, L"GetAll", {"\\"});
    }

    void ExpectAll(const std::string& answer, const std::vector<std::string>& texts) {
        const std::vector<BidiAnswer> answers = All(answer);
        std::set<std::string> paths;
        for (const BidiAnswer& one : answers) {
            EXPECT_TRUE(paths.insert(one.path).second) << one.path << answer;
        }
        for (const std::string& text : texts) {
            // A List has it among others.
            const bool answered = std::any_of(answers.begin(), answers.end(), [&](const BidiAnswer& one) {
                return ("," + one.value + ",").find("," + text + ",") != std::string::npos;
            });
            EXPECT_TRUE(answered) << "'" << text << "' is nowhere\n" << file_.xml << answer;
        }
    }

    NewExtension file_;

 private:
    std::string Write(const wchar_t* name, const std::string& content) {
        return ToUtf8(folder_.Write(name, content));
    }
    const test::TempDir folder_;
};

// An answer of chance, and the texts in it.
class Generator {
 public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string Make() {
        std::vector<std::string> elements;
        for (size_t i = 0; i < 1 + Below(3); ++i)
            elements.push_back(Element(std::string(Below(4) == 0 ? "v:" : "w:") + Pick(kNames), 0));
        return Answer(elements);
    }
    const std::vector<std::string>& Texts() const { return texts_; }

 private:
    size_t Below(size_t end) { return random_() % end; }
    const char* Pick(const std::vector<const char*>& from) { return from[Below(from.size())]; }

    std::string Text() {
        std::string text = Pick(Below(3) == 0 ? kNumbers : Below(2) == 0 ? kWords : kUnusual);
        // Else all texts of a value might be in some other one.
        if (Below(2) == 0) text += " " + std::to_string(++number_);
        texts_.push_back(text);
        return ToUtf8(EscapeXml(FromUtf8(text)));
    }
    std::string Key() {
        const std::string key = Below(6) == 0   ? "same"
                                : Below(8) == 0 ? "a.b"
                                                : "Key" + std::to_string(++number_);
        texts_.push_back(key);
        return key;
    }

    std::string Element(const std::string& name, int depth) {
        std::string tag = "<" + name;
        if (Below(3) == 0) tag += std::string(Below(2) == 0 ? " Name" : " w:Name") + "=\"" + Key() + "\"";
        if (Below(6) == 0) tag += " Id=\"" + Key() + "\"";
        if (Below(8) == 0) tag += " v:And=\"" + Text() + "\"";
        if (Below(8) == 0) {
            const char* language = Pick({"de", "en-GB", "fr"});
            texts_.push_back(language);
            tag += std::string(" xml:lang=\"") + language + "\"";
        }
        std::string inside;
        const size_t kind = Below(10);
        if (depth < 4 && kind < 6) {
            for (size_t i = 0; i < 1 + Below(3); ++i) {
                const std::string child = std::string(Pick({"w:", "w:", "w:", "v:", ""})) + Pick(kNames);
                const size_t times = Below(3) == 0 ? 1 + Below(Below(4) == 0 ? 12 : 4) : 1;
                for (size_t j = 0; j < times; ++j)
                    inside += Element(child, depth + 1);
            }
            if (Below(6) == 0) inside += Text();
        } else if (kind < 9) {
            inside = Text();
        }
        return inside.empty() ? tag + "/>" : tag + ">" + inside + "</" + name + ">";
    }

    const std::vector<const char*> kNames{"Level", "Tray",  "A.B",          "div",
                                          "text",  "Name",  "Id",           "\xC3\x9Cnit",
                                          "_x-1",  "Color", "ElementData2", "PrinterStatus"};
    const std::vector<const char*> kNumbers{"7", "-3", "007", "+5", "14.5", "1.50", "1e3", "99999999999"};
    const std::vector<const char*> kWords{"true",  "false", "True", "x y", "it's",
                                          "\"q\"", "$P$",   "<&>",  "-- >"};
    const std::vector<const char*> kUnusual{"a.b:c\\d", "M\xC3\xBCller", "\xF0\x9F\x96\xA8"};
    std::mt19937 random_;
    int number_ = 0;
    std::vector<std::string> texts_;
};

TEST_F(NewExtensionTest, AnswersEveryTextOfAnswersOfChance) {
    for (unsigned seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE(seed);
        Generator generator(seed);
        const std::string answer = generator.Make();
        ExpectAll(answer, generator.Texts());
        if (HasFailure()) break;
    }
}

TEST_F(NewExtensionTest, MakesAParameterOfWhatHasANameAndNumbersWhatHasNone) {
    const std::string trays =
        "<w:Bins><w:Bin Name=\"T1\"><w:Level>7</w:Level></w:Bin><w:Bin "
        "Name=\"T2\"><w:Level>007</w:Level></w:Bin></w:Bins>";
    const auto paths = [&](const std::string& element) {
        std::vector<std::string> all;
        for (const BidiAnswer& one : All(Answer({element})))
            all.push_back(one.path + " " + one.type + " " + one.value);
        return all;
    };
    using testing::ElementsAre;
    EXPECT_THAT(
        paths("<w:C>" + trays + "</w:C>"),
        ElementsAre("\\Printer.C.Bins.T1:Name BIDI_STRING T1", "\\Printer.C.Bins.T1:Level BIDI_STRING 7",
                    "\\Printer.C.Bins.T2:Name BIDI_STRING T2", "\\Printer.C.Bins.T2:Level BIDI_STRING 007"));
    EXPECT_THAT(paths("<w:S><w:L><w:A>1</w:A></w:L><w:L><w:A>2</w:A><w:B/></w:L></w:S>"),
                ElementsAre("\\Printer.S.L1:A BIDI_INT 1", "\\Printer.S.L2:A BIDI_INT 2",
                            "\\Printer.S.L2:B BIDI_BOOL true"));
    EXPECT_THAT(paths("<w:S><w:N xml:lang='de'>Drucker</w:N><w:N xml:lang='en-GB'>Printer</w:N></w:S>"),
                ElementsAre("\\Printer.S.de:lang BIDI_STRING de", "\\Printer.S.de:Text BIDI_STRING Drucker",
                            "\\Printer.S.en-GB:lang BIDI_STRING en-GB",
                            "\\Printer.S.en-GB:Text BIDI_STRING Printer"));
    // What could not be asked for alone names no level.
    EXPECT_THAT(paths("<w:S><w:N Name='a.b'><w:A>1</w:A></w:N><w:N Name='c'><w:A>2</w:A></w:N></w:S>"),
                testing::Contains("\\Printer.S.N1:Name BIDI_STRING a.b"));
    EXPECT_THAT(paths("<w:S>one<w:A>two</w:A>three</w:S>"),
                ElementsAre("\\Printer.S:Text BIDI_STRING one,three", "\\Printer.S:A BIDI_STRING two"));
}

TEST_F(NewExtensionTest, AnswersALargeDeviceWithinTheBudget) {
    std::vector<std::string> texts;
    const auto text = [&] { return texts.emplace_back("t" + std::to_string(texts.size())); };
    std::string configuration = "<w:PrinterConfiguration>";
    for (int i = 0; i < 60; ++i)
        configuration += "<w:Entry Name=\"" + text() + "\"><w:Type>" + text() + "</w:Type><w:Level>" +
                         text() + "</w:Level></w:Entry>";
    std::string status = "<w:PrinterStatus><w:Conditions>";
    for (int i = 0; i < 200; ++i) {
        status += "<w:Condition Id=\"" + text() + "\"><w:Time>" + text() + "</w:Time>";
        for (const char* language : {"de", "en", "fr"})
            status += std::string("<w:Name xml:lang=\"") + language + "\">" + text() + "</w:Name>";
        status += "</w:Condition>";
    }
    std::string log = "</w:Conditions><w:History>";
    for (int i = 0; i < 200; ++i)
        log += "<w:Entry><w:Time>" + text() + "</w:Time><w:Name>" + text() + "</w:Name></w:Entry>";
    ExpectAll(Answer({configuration + "</w:PrinterConfiguration>",
                      status + log + "</w:History></w:PrinterStatus>"}),
              texts);
}

TEST_F(NewExtensionTest, AnswersWhatIsNestedDeeperThanAFileMayBe) {
    std::string inside = "<w:A>deepest</w:A>";
    for (int i = 0; i < 80; ++i)
        inside = "<w:L" + std::to_string(i) + " k=\"k" + std::to_string(i) + "\">" + inside + "</w:L" +
                 std::to_string(i) + ">";
    ExpectAll(Answer({inside}), {"deepest", "k0", "k79"});
}

}  // namespace
}  // namespace vlm::ctl
