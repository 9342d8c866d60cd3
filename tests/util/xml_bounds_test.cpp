#include "util/xml_bounds.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vlm {
namespace {

constexpr XmlLimits kLimits{400, 3, 8};

XmlRefusal Check(const std::string& text) {
    return CheckXmlBounds(std::as_bytes(std::span(text)), kLimits);
}

std::string Utf16(const std::string& ascii, bool bigEndian) {
    std::string wide;
    for (const char c : ascii) {
        if (bigEndian) wide += '\0';
        wide += c;
        if (!bigEndian) wide += '\0';
    }
    return wide;
}

TEST(XmlBounds, RefusesWhatAParserShouldNotSee) {
    const std::string doctype = "<!DOCTYPE r [<!ENTITY a 'b'>]><r/>";
    const struct {
        const char* what;
        std::string text;
        XmlRefusal expected;
    } kCases[] = {
        {"empty", "", XmlRefusal::kNone},
        {"plain", "<?xml version='1.0'?><a b='1'><c/></a>", XmlRefusal::kNone},
        {"at the deepest", "<a><b><c/><c></c></b></a>", XmlRefusal::kNone},
        {"too deep", "<a><b><c><d/><d></d></c></b></a>", XmlRefusal::kTooDeep},
        {"siblings are not deep", "<a><b/><b/><b></b><b></b><b/></a>", XmlRefusal::kNone},
        {"too many elements", "<a><b/><b/><b/><b/><b/><b/><b/><b/></a>", XmlRefusal::kTooManyNodes},
        {"attributes count, too", "<a a='' b='' c='' d='' e='' f='' g='' h=''/>", XmlRefusal::kTooManyNodes},
        {"too large", "<a>" + std::string(400, ' ') + "</a>", XmlRefusal::kTooLarge},
        {"document type", doctype, XmlRefusal::kDocumentType},
        {"document type behind a BOM and a comment", "\xEF\xBB\xBF<!-- x -->" + doctype,
         XmlRefusal::kDocumentType},
        {"document type in UTF-16 with BOM", "\xFF\xFE" + Utf16(doctype, false), XmlRefusal::kDocumentType},
        {"document type in big-endian UTF-16", "\xFE\xFF" + Utf16(doctype, true), XmlRefusal::kDocumentType},
        {"document type in UTF-16 without BOM", Utf16(doctype, false), XmlRefusal::kDocumentType},
        {"UTF-32", std::string("<\0\0\0", 4), XmlRefusal::kEncoding},
        {"EBCDIC", "\x4C\x6F\xA7\x94\x93", XmlRefusal::kEncoding},
        {"markup in comments, CDATA and attributes is text",
         "<a b='<!DOCTYPE <<>'><!-- <x><x><x><x> --><![CDATA[<x><x><x><x>]]></a>", XmlRefusal::kNone},
        {"a wide character whose byte looks like markup",
         "\xFF\xFE" + Utf16("<a>", false) + std::string("\0<\0<\0<\0<", 8), XmlRefusal::kNone},
        {"ends in a tag", "<a><b c='", XmlRefusal::kNone},
        {"ends in a comment", "<a><!-- ", XmlRefusal::kNone},
        {"closes more than it opens", "</a></a><a><b><c/></b></a>", XmlRefusal::kNone},
    };
    for (const auto& test : kCases)
        EXPECT_EQ(Check(test.text), test.expected) << test.what;
}

}  // namespace
}  // namespace vlm
