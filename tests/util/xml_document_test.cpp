// The prefixes that CXMLDoc makes known to XPath, over the platform's real MSXML. How documents load and what
// XPath finds in them is tested through the engine.
#include <gtest/gtest.h>

#include <string>

#include "tests/util/trace_capture.h"
#include "util/vlxml.h"

namespace vlm {
namespace {

TEST(XmlDocument, SelectionNamespacesAreThoseOfTheFirstElementThatDeclaresTheTarget) {
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    const struct {
        const char* what;
        const char* text;
        const wchar_t* expected;  // null: refused
    } kCases[] = {
        {"as default, on the root", "<r xmlns='urn:target' a='1' xmlns:p='urn:p'><b/></r>",
         L"xmlns:defNsPfx=\"urn:target\" xmlns:p=\"urn:p\" "},
        {"default behind a prefix", "<r xmlns:p='urn:p' xmlns='urn:target'/>",
         L"xmlns:p=\"urn:p\" xmlns:defNsPfx=\"urn:target\" "},
        {"three prefixes and nothing else", "<r xmlns:a='urn:a' xmlns:b='urn:b' xmlns:c='urn:target'/>",
         L"xmlns:a=\"urn:a\" xmlns:b=\"urn:b\" xmlns:c=\"urn:target\" "},
        {"default on a prefixed element", "<p:r xmlns='urn:target' xmlns:p='urn:p'><b/></p:r>",
         L"xmlns:defNsPfx=\"urn:target\" xmlns:p=\"urn:p\" "},
        {"nested: the element's own declarations alone",
         "<r xmlns:o='urn:outer'><x/>text<!-- c --><y><z xmlns:q='urn:target' xmlns:s='urn:s'/></y></r>",
         L"xmlns:q=\"urn:target\" xmlns:s=\"urn:s\" "},
        {"the first of two", "<r><a xmlns:first='urn:target'/><a xmlns:second='urn:target'/></r>",
         L"xmlns:first=\"urn:target\" "},
        {"a default that is undone is no namespace",
         "<o xmlns='urn:o'><r xmlns='' xmlns:p='urn:target'/></o>", L"xmlns:p=\"urn:target\" "},
        {"nowhere", "<r xmlns='urn:other' t='urn:target'><a/></r>", nullptr},
        {"other letter case", "<r xmlns='urn:Target'/>", nullptr},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        const test::TraceCapture trace;
        CXMLDoc document;
        document.Init();
        if (test.expected == nullptr) {
            EXPECT_THROW(document.LoadBytes(test.text, L"urn:target"), CComErrorEx);
            EXPECT_TRUE(trace.Has(L"** XML Error: unable to find namespace \"urn:target\" **\r\n"));
            continue;
        }
        document.LoadBytes(test.text, L"urn:target");
        const _bstr_t property(L"SelectionNamespaces");
        _variant_t value;
        EXPECT_EQ(document.Document()->getProperty(property, &value), S_OK);
        EXPECT_STREQ(value.bstrVal, test.expected);
    }
}

}  // namespace
}  // namespace vlm
