// CXMLDoc over the platform's real MSXML.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/util/temp_dir.h"
#include "tests/util/trace_capture.h"
#include "util/streams.h"
#include "util/vlxml.h"

namespace vlm {
namespace {

using test::TempDir;
using test::TraceCapture;

constexpr wchar_t kTarget[] = L"urn:target";

ComPtr<IStream> StreamOf(const std::string& bytes) {
    ComPtr<IStream> stream;
    EXPECT_EQ(MakeStream(bytes, stream.Receive()), S_OK);
    return stream;
}

// What the operation throws, or S_OK.
template <typename Operation>
HRESULT Outcome(Operation operation) {
    try {
        operation();
        return S_OK;
    } catch (const _com_error& error) {
        return error.Error();
    }
}

class XmlDocument : public testing::Test {
 protected:
    XmlDocument() { document_.Init(); }

    std::wstring SelectionNamespaces() const {
        const _bstr_t name(L"SelectionNamespaces");
        _variant_t value;
        EXPECT_EQ(document_.Document()->getProperty(name, &value), S_OK);
        return value.vt == VT_BSTR && value.bstrVal != nullptr ? value.bstrVal : L"";
    }

    const ComApartment apartment_{COINIT_APARTMENTTHREADED};
    CXMLDoc document_;
};

TEST_F(XmlDocument, LoadsOrRefusesFilesAndStreamsAlike) {
    std::string utf16 = "\xFF\xFE";
    for (const char c : std::string("<r xmlns='urn:target'>\xE9</r>"))
        utf16 += {c, '\0'};
    const struct {
        const char* what;
        std::string bytes;
        bool loads;
    } kCases[] = {
        {"UTF-8", "<r xmlns='urn:target'>\xC3\xA9</r>", true},
        {"UTF-8 with BOM", "\xEF\xBB\xBF<r xmlns='urn:target'/>", true},
        {"UTF-16 with BOM", utf16, true},
        {"Latin-1", "<?xml version='1.0' encoding='iso-8859-1'?><r xmlns='urn:target'>\xE9</r>", true},
        {"empty", "", false},
        {"truncated", "<r xmlns='urn:target'><a>", false},
        {"no XML", "HTTP/1.1 200 OK", false},
        {"wrong encoding", "<?xml version='1.0' encoding='utf-8'?><r xmlns='urn:target'>\xE9</r>", false},
        {"unknown encoding", "<?xml version='1.0' encoding='klingon'?><r xmlns='urn:target'/>", false},
        {"two roots", "<r xmlns='urn:target'/><r/>", false},
    };
    const TempDir folder;
    for (const auto& test : kCases) {
        const std::wstring path = folder.Write(L"case.xml", test.bytes);
        {
            const TraceCapture trace;
            EXPECT_EQ(Outcome([&] { document_.LoadFile(path.c_str(), kTarget); }), test.loads ? S_OK : E_FAIL)
                << test.what;
            EXPECT_EQ(trace.Has(L"Error: Unable to load file " + path + L"\r\n"), !test.loads) << test.what;
            EXPECT_EQ(trace.HasPart(L"** XML Parse error 0x8"), !test.loads) << test.what;
        }
        const TraceCapture trace;
        EXPECT_EQ(Outcome([&] { document_.LoadStream(StreamOf(test.bytes).Get(), kTarget); }),
                  test.loads ? S_OK : E_FAIL)
            << test.what;
        EXPECT_EQ(trace.Has(L"Error: Unable to load WSD stream\r\n"), !test.loads) << test.what;
        EXPECT_EQ(trace.HasPart(L"** XML Parse error 0x8"), !test.loads) << test.what;
    }
}

TEST_F(XmlDocument, MissingFileAndMissingDocumentAreReported) {
    const TraceCapture trace;
    EXPECT_EQ(Outcome([&] { document_.LoadFile(L"C:\\no\\such.xml", nullptr); }), E_FAIL);
    EXPECT_TRUE(trace.Has(L"Error: Unable to load file C:\\no\\such.xml\r\n"));
    EXPECT_EQ(Outcome([&] { document_.LoadStream(nullptr, nullptr); }), E_INVALIDARG);
    CXMLDoc none;
    EXPECT_EQ(Outcome([&] { none.LoadXml(L"<r/>", nullptr); }), E_POINTER);
}

TEST_F(XmlDocument, SelectionNamespacesAreThoseOfTheFirstElementThatDeclaresTheTarget) {
    const struct {
        const wchar_t* what;
        const wchar_t* text;
        const wchar_t* expected;  // null: refused
        const wchar_t* found;     // an XPath that then finds something
    } kCases[] = {
        {L"as default, on the root", L"<r xmlns='urn:target' a='1' xmlns:p='urn:p'><b/></r>",
         L"xmlns:defNsPfx=\"urn:target\" xmlns:p=\"urn:p\" ", L"/defNsPfx:r/defNsPfx:b"},
        {L"default behind a prefix", L"<r xmlns:p='urn:p' xmlns='urn:target'/>",
         L"xmlns:p=\"urn:p\" xmlns:defNsPfx=\"urn:target\" ", L"/defNsPfx:r"},
        {L"default alone", L"<r xmlns='urn:target'/>", L"xmlns:defNsPfx=\"urn:target\" ", L"/defNsPfx:r"},
        {L"three prefixes and nothing else", L"<r xmlns:a='urn:a' xmlns:b='urn:b' xmlns:c='urn:target'/>",
         L"xmlns:a=\"urn:a\" xmlns:b=\"urn:b\" xmlns:c=\"urn:target\" ", L"/r"},
        {L"default on a prefixed element", L"<p:r xmlns='urn:target' xmlns:p='urn:p'><b/></p:r>",
         L"xmlns:defNsPfx=\"urn:target\" xmlns:p=\"urn:p\" ", L"/p:r/defNsPfx:b"},
        {L"nested: the element's own declarations alone",
         L"<r xmlns:o='urn:outer'><x/>text<!-- c --><y><z xmlns:q='urn:target' xmlns:s='urn:s'/></y></r>",
         L"xmlns:q=\"urn:target\" xmlns:s=\"urn:s\" ", L"//z"},
        {L"the first of two", L"<r><a xmlns:first='urn:target'/><a xmlns:second='urn:target'/></r>",
         L"xmlns:first=\"urn:target\" ", L"//a"},
        {L"a default that is undone is no namespace",
         L"<o xmlns='urn:o'><r xmlns='' xmlns:p='urn:target'/></o>", L"xmlns:p=\"urn:target\" ", L"//r"},
        {L"nowhere", L"<r xmlns='urn:other' t='urn:target'><a/></r>", nullptr, nullptr},
        {L"other letter case", L"<r xmlns='urn:Target'/>", nullptr, nullptr},
    };
    for (const auto& test : kCases) {
        const TraceCapture trace;
        CXMLDoc document;
        document.Init();
        document_ = std::move(document);
        const HRESULT hr = Outcome([&] { document_.LoadXml(test.text, kTarget); });
        if (test.expected == nullptr) {
            EXPECT_EQ(hr, E_FAIL) << test.what;
            EXPECT_TRUE(trace.Has(L"** XML Error: unable to find namespace \"urn:target\" **\r\n"))
                << test.what;
            EXPECT_EQ(document_.TargetNamespace().length(), 0u);
            continue;
        }
        ASSERT_EQ(hr, S_OK) << test.what;
        EXPECT_EQ(SelectionNamespaces(), test.expected) << test.what;
        EXPECT_TRUE(document_.SelectSingleNode(test.found)) << test.what;
        EXPECT_STREQ(document_.TargetNamespace(), kTarget);
    }
}

TEST_F(XmlDocument, WithoutTargetNothingIsPrepared) {
    document_.LoadXml(L"<r xmlns='urn:target'/>", nullptr);
    EXPECT_EQ(SelectionNamespaces(), L"");
    EXPECT_EQ(document_.TargetNamespace().length(), 0u);
}

TEST_F(XmlDocument, SelectingTellsNothingFoundFromNoXPath) {
    document_.LoadXml(L"<r a='1'><b>one</b><b> two </b></r>", nullptr);
    EXPECT_EQ(TextOf(document_.SelectSingleNode(L"//b[2]").Get()), L"two");
    EXPECT_FALSE(document_.SelectSingleNode(L"//c"));
    const auto nodes = document_.SelectNodes(L"//b");
    EXPECT_TRUE(NextNode(nodes.Get()) && NextNode(nodes.Get()));
    EXPECT_FALSE(NextNode(nodes.Get()));
    for (const wchar_t* xpath : {L"//", L"", L"//b[.='it's']", L"//p:b", L"count(//b)"}) {
        EXPECT_EQ(Outcome([&] { document_.SelectSingleNode(xpath); }), E_FAIL) << xpath;
        EXPECT_EQ(Outcome([&] { document_.SelectNodes(xpath); }), E_FAIL) << xpath;
    }
}

TEST_F(XmlDocument, AttributeIsReadOrAbsent) {
    document_.LoadXml(L"<r a='&lt;1&gt;' empty=''/>", nullptr);
    const auto root = document_.Root();
    _variant_t value;
    ASSERT_TRUE(document_.GetAttribute(root.Get(), L"a", &value));
    EXPECT_STREQ(value.bstrVal, L"<1>");
    EXPECT_TRUE(document_.GetAttribute(root.Get(), L"empty", &value));
    EXPECT_FALSE(document_.GetAttribute(root.Get(), L"missing", &value));
}

}  // namespace
}  // namespace vlm
