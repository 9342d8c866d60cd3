#include "util/xml_bounds.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace vlm {
namespace {

constexpr XmlLimits kLimits{400, 3, 8, 100, 2};

std::string Utf16(std::string_view ascii, bool bigEndian, bool mark) {
    std::string bytes = mark ? (bigEndian ? "\xFE\xFF" : "\xFF\xFE") : "";
    for (const char c : ascii)
        bytes += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return bytes;
}

TEST(XmlBounds, RefusesWhatAParserShouldNotSee) {
    using enum XmlRefusal;
    const std::string bomb = "<!DOCTYPE r [<!ENTITY a 'b'>]><r>&a;</r>";
    const struct {
        const char* what;
        std::string text;
        XmlRefusal expected;
    } kCases[] = {
        {"empty", "", kNone},
        {"plain", "<?xml version='1.0'?><a b='1'><c/></a>", kNone},
        {"a single-byte encoding", "<?xml version='1.0' encoding='Windows-1252'?><a>\xE4</a>", kNone},
        {"UTF-16", Utf16("<?xml version='1.0' encoding='utf-16'?><a/>", false, true), kNone},
        {"UTF-16 without a mark", Utf16("<a>text</a>", true, false), kNone},
        {"at the deepest", "<a><b><c/><c></c></b></a>", kNone},
        {"too deep", "<a><b><c><d/><d></d></c></b></a>", kTooDeep},
        {"too deep by an empty element", "<a><b><c><d/></c></b></a>", kTooDeep},
        {"siblings are not deep", "<a><b/><b/><b></b><b></b><b/></a>", kNone},
        {"too many elements", "<a><b/><b/><b/><b/><b/><b/><b/><b/></a>", kTooManyNodes},
        {"attributes count, too", "<a a='' b='' c='' d='' e='' f='' g='' h=''/>", kTooManyNodes},
        {"comments and the like count, too",
         "<a><!----><!----><![CDATA[]]><?p q?><b/><!----><!----><!----></a>", kTooManyNodes},
        {"declarations out of scope do not count",
         "<a xmlns='u'><b xmlns:p='p'/><b\nxmlns:q='q'></b><b xmlns='v'/></a>", kNone},
        {"declarations in scope", "<a xmlns='u'><b xmlns:p='p'><c\txmlns:q='q'/></b></a>",
         kTooManyDeclarations},
        {"what only looks like a declaration", "<a xmlnsx='u' b=' xmlns:a='><b p:xmlns='' c='' d=''/></a>",
         kNone},
        {"too large", "<a>" + std::string(400, ' ') + "</a>", kTooLarge},
        {"the longest tag", "<a b='" + std::string(91, 'x') + "'/>", kNone},
        {"a longer tag", "<a b='" + std::string(92, 'x') + "'/>", kTagTooLong},
        {"document type", bomb, kDocumentType},
        {"document type behind a mark and a comment", "\xEF\xBB\xBF<?xml version='1.0'?>\n<!-- x -->" + bomb,
         kDocumentType},
        {"another declaration", "<a><!ELEMENT a></a>", kDocumentType},
        {"document type in UTF-16", Utf16(bomb, false, true), kDocumentType},
        {"document type in big-endian UTF-16", Utf16(bomb, true, true), kDocumentType},
        {"document type in UTF-16 without a mark", Utf16(bomb, false, false), kDocumentType},
        {"UTF-16 behind a blank, where its first character does not give it away",
         Utf16(" " + bomb, false, false), kEncoding},
        {"UTF-32", std::string("<\0\0\0", 4), kEncoding},
        {"UTF-32 with a mark", std::string("\xFF\xFE\0\0<\0\0\0", 8), kEncoding},
        {"EBCDIC", "\x4C\x6F\xA7\x94\x93", kEncoding},
        {"EBCDIC behind a mark, which is taken off", "\xEF\xBB\xBF\x4C\x6F\xA7\x94\x93", kEncoding},
        {"a mark behind a mark", "\xEF\xBB\xBF\xEF\xBB\xBF<a/>", kEncoding},
        {"UTF-16's mark behind a mark", "\xEF\xBB\xBF\xFF\xFE\x01\x02", kEncoding},
        {"UTF-7 says \"-->\" in other bytes: the parser's comment would end before the scan's",
         "<?xml version='1.0' encoding='UTF-7'?><!-- +AC0ALQA+-" + bomb + "-->", kEncoding},
        {"an encoding without a name", "<?xml version='1.0' encoding?><a/>", kEncoding},
        {"markup in comments, CDATA and attributes is text",
         "<a b='<!DOCTYPE <<>'><!-- <x><x><x><x> --><![CDATA[<x><x><x><x>]]></a>", kNone},
        {"a wide character whose byte looks like markup",
         Utf16("<a>", false, true) + std::string("\x01<\x01<\x01<\x01<", 8), kNone},
        {"ends in a tag", "<a><b c='", kNone},
        {"ends in a comment", "<a><!-- ", kNone},
        {"closes more than it opens", "</a></a><a><b><c/></b></a>", kNone},
    };
    for (const auto& test : kCases)
        EXPECT_EQ(CheckXmlBounds(test.text, kLimits), test.expected) << test.what;
}

TEST(XmlBounds, BreaksLinesOnlyWhereTheySayNothing) {
    std::string ready;
    ASSERT_EQ(CheckXmlBounds("\xEF\xBB\xBF<?x </a>?><a b='</a>'>t<!--</a>--><![CDATA[</a>]]><c/></a > <d",
                             kLimits, &ready),
              XmlRefusal::kNone);
    EXPECT_EQ(ready, "<?x </a>?><a b='</a>'\n>t<!--</a>--><![CDATA[</a>]]><c\n/></a \n> <d");
    const std::string wide = Utf16("<a></a>", false, true);
    ASSERT_EQ(CheckXmlBounds(wide, kLimits, &ready), XmlRefusal::kNone);
    EXPECT_EQ(ready, wide);
}

// For the sanitizers: nothing that can be cut or flipped reads outside the text.
TEST(XmlBounds, SurvivesDamage) {
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
            CheckXmlBounds({exact.data(), exact.size()}, kLimits, &ready);
        }
    }
}

}  // namespace
}  // namespace vlm
