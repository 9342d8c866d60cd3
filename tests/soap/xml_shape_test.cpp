#include "soap/xml_shape.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace vlm {
namespace {

std::string Utf16(std::string_view ascii, bool bigEndian, bool mark) {
    std::string bytes = mark ? (bigEndian ? "\xFE\xFF" : "\xFF\xFE") : "";
    for (const char c : ascii)
        bytes += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return bytes;
}

std::string Nested(size_t depth) {
    std::string text;
    for (size_t i = 0; i < depth; ++i)
        text += "<a>";
    for (size_t i = 0; i < depth; ++i)
        text += "</a>";
    return text;
}

std::string Many(size_t count) {
    std::string text = "<r>";
    for (size_t i = 1; i < count; ++i)
        text += "<a/>";
    return text + "</r>";
}

const wchar_t* Refusal(std::string_view text) {
    std::string ready;
    return WhyNotParse(text, &ready);
}

TEST(XmlShape, BreaksLinesOnlyWhereTheySayNothing) {
    std::string ready;
    ASSERT_EQ(WhyNotParse("\xEF\xBB\xBF<?x </a>?><a b='</a>'>t<!--</a>--><![CDATA[</a>]]><c/></a > ", &ready),
              nullptr);
    EXPECT_EQ(ready, "<?x </a>?><a b='</a>'>t<!--</a>--><![CDATA[</a>]]><c/></a \n> ");
    const std::string wide = Utf16("<a></a>", false, true);
    ASSERT_EQ(WhyNotParse(wide, &ready), nullptr);
    EXPECT_EQ(ready, wide);
}

TEST(XmlShape, LetsHarmlessDocumentsThrough) {
    const std::string rows[] = {
        "",
        "<a/>",
        "\xEF\xBB\xBF<?xml version='1.0' encoding=\"UTF-8\"?><a b='>' c=\"/>\">x<![CDATA[<!DOCTYPE a>]]></a>",
        "<!-- <!DOCTYPE a> --><?pi <!DOCTYPE?><a>&lt;!DOCTYPE</a>",
        "<?xml version='1.0' encoding='Windows-1252'?><a>\xE4</a>",
        Utf16("<?xml version='1.0' encoding='utf-16'?><a/>", false, true),
        Utf16("<a>text</a>", true, true),
        Utf16("<a>text</a>", false, false),
        Nested(kDeepestXml),
        Many(kMostXmlElements),
        "<a b='" + std::string(kLongestXmlTag - 9, 'x') + "'/>",
    };
    for (const std::string& row : rows)
        EXPECT_EQ(Refusal(row), nullptr) << row.substr(0, 80);
}

TEST(XmlShape, RefusesWhatAParserCouldChokeOn) {
    const std::string bomb = "<!DOCTYPE a [<!ENTITY b 'xx'>]><a>&b;</a>";
    const std::string rows[] = {
        bomb,
        "\xEF\xBB\xBF<?xml version='1.0'?>\n<!-- x -->" + bomb,
        "<a><!ELEMENT a></a>",
        Utf16(bomb, false, true),
        Utf16(bomb, true, true),
        Utf16(bomb, false, false),
        Utf16(bomb, true, false),
        // A wider encoding behind a blank, where its first character does not give it away.
        Utf16(" " + bomb, false, false),
        // UTF-7 says "-->" in other bytes, so that the parser's comment would end before the scan's.
        "<?xml version='1.0' encoding='UTF-7'?><!-- +AC0ALQA+-" + bomb + "-->",
        "<?xml version='1.0' encoding='EBCDIC-CP-US'?><a/>",
        "<?xml version='1.0' encoding?><a/>",
        Nested(kDeepestXml + 1),
        Nested(10'000),
        Many(kMostXmlElements + 1),
        "<a b='" + std::string(kLongestXmlTag, 'x') + "'/>",
        "<a",
        "<a b='",
        "<!-- ",
        "<![CDATA[ ]]",
        "<?pi",
    };
    for (const std::string& row : rows)
        EXPECT_NE(Refusal(row), nullptr) << row.substr(0, 80);
}

// For the sanitizers: nothing that can be cut or flipped reads outside the text.
TEST(XmlShape, SurvivesDamage) {
    const std::string whole =
        "<?xml version='1.0' encoding='utf-8'?><!--c--><a b='1'><![CDATA[x]]><?p q?><c/></a>";
    std::mt19937 random(4);
    for (size_t length = 0; length <= whole.size(); ++length) {
        for (int round = 0; round < 20; ++round) {
            std::string text = whole.substr(0, length);
            for (int flips = round % 4; flips > 0 && !text.empty(); --flips) {
                text[random() % text.size()] = "<>!-[]?/'\"\0\xFF\xFE"[random() % 13];
            }
            // A copy of exact size, so that reading one behind its end is found.
            const std::vector<char> exact(text.begin(), text.end());
            std::string ready;
            WhyNotParse({exact.data(), exact.size()}, &ready);
        }
    }
}

}  // namespace
}  // namespace vlm
