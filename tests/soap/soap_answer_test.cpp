// What is made of a printer's answer: the clean-up that the Bidi engine relies on, and the fault.
#include <gtest/gtest.h>

#include <string>

#include "soap/printer_elements.h"
#include "soap/soap_fault.h"
#include "util/sax.h"

namespace vlm {
namespace {

const std::string kSoap12 = "http://www.w3.org/2003/05/soap-envelope";
const std::string kSoap11 = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string kPrint = "http://schemas.microsoft.com/windows/2006/08/wdp/print";
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const wchar_t kQuery[] =
    L"<EnumQueryElement xmlns:wprt=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\" "
    L"xmlns:nprt=\"urn:v\"/>";

class AnswerTest : public testing::Test {
 protected:
    // The cleaned document, or the HRESULT in hexadecimal.
    static std::string Clean(const std::string& answer, const wchar_t* query = kQuery) {
        std::string cleaned;
        const HRESULT hr = CleanPrinterElements(answer, query, &cleaned);
        if (SUCCEEDED(hr)) return cleaned;
        EXPECT_EQ(cleaned, "");
        char code[16];
        snprintf(code, sizeof code, "%08lX", static_cast<unsigned long>(hr));
        return code;
    }

    const ComApartment com_{COINIT_APARTMENTTHREADED};
};

using CleanUp = AnswerTest;

std::string Envelope(const std::string& content) {
    return "<s:Envelope xmlns:s='" + kSoap12 + "'><s:Body>" + content + "</s:Body></s:Envelope>";
}

TEST_F(CleanUp, BringsTheQuerysPrefixesToTheRoot) {
    const std::string answer = "<?xml version='1.0'?>\r\n<!-- c --><s:Envelope xmlns:s='" + kSoap12 +
                               "' xmlns:a='urn:a'>\r\n<s:Body>"
                               "<R xmlns='" +
                               kPrint + "'><ElementData xmlns:q='" + kPrint +
                               "' Name='q:PrinterStatus' Valid='true'>"
                               "<T>a &amp; &quot;b&quot; <![CDATA[<c>]]></T><x:V xmlns:x='urn:v' x:k='1' "
                               "xml:lang='de'/><E/></ElementData>"
                               "</R></s:Body></s:Envelope>\n";
    EXPECT_EQ(Clean(answer),
              kDeclaration + "<s:Envelope xmlns:s=\"" + kSoap12 + "\" xmlns:a=\"urn:a\" xmlns:wprt=\"" +
                  kPrint +
                  "\" xmlns:nprt=\"urn:v\">\n<s:Body><wprt:R><wprt:ElementData Name=\"wprt:PrinterStatus\" "
                  "Valid=\"true\">"
                  "<wprt:T>a &amp; \"b\" &lt;c&gt;</wprt:T><nprt:V nprt:k=\"1\" xml:lang=\"de\"/><wprt:E/>"
                  "</wprt:ElementData></wprt:R></s:Body></s:Envelope>");
}

TEST_F(CleanUp, ReadsEveryEncodingAndWritesUtf8) {
    const std::string expected = "<wprt:a>\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80</wprt:a>";
    const std::string utf8 = Envelope("<a xmlns='" + kPrint + "'>\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80</a>");
    const std::string ascii = Envelope("<a xmlns='" + kPrint + "'>&#228;&#x20AC;&#x1F600;</a>");
    std::string utf16 = "\xFF\xFE";
    for (const char c : "<?xml version='1.0' encoding='utf-16'?>" + ascii)
        utf16 += std::string{c, '\0'};
    const std::string latin = "<?xml version='1.0' encoding='windows-1252'?>" +
                              Envelope("<a xmlns='" + kPrint + "'>\xE4\x80&#x1F600;</a>");
    for (const std::string& answer : {utf8, "\xEF\xBB\xBF" + utf8, ascii, utf16, latin}) {
        EXPECT_NE(Clean(answer).find(expected), std::string::npos) << answer.substr(0, 60);
    }
}

TEST_F(CleanUp, RefusesWhatIsNoAnswer) {
    std::string attributes;
    std::string namespaces;
    for (int i = 0; i < 200'000; ++i)
        attributes += " a" + std::to_string(i) + "=''";
    for (int i = 0; i < 1000; ++i)
        namespaces += "<a xmlns='urn:" + std::to_string(i) + "'/>";
    const struct {
        const char* what;
        std::string answer;
    } rows[] = {
        {"nothing", ""},
        {"text", "hello"},
        {"HTML", "<html><body><p>x<br></body></html>"},
        {"XHTML", "<html xmlns='http://www.w3.org/1999/xhtml'/>"},
        {"SOAP 1.1", "<s:Envelope xmlns:s='" + kSoap11 + "'><s:Body/></s:Envelope>"},
        {"cut short", Envelope("<a>").substr(0, 90)},
        {"two roots", Envelope("") + Envelope("")},
        {"text behind the root", Envelope("") + "x"},
        {"a prefix that nobody declared", Envelope("<x:a/>")},
        {"an undefined entity", Envelope("&nbsp;")},
        {"bytes that are no UTF-8", Envelope("\xC3\x28")},
        {"a document type declaration", "<!DOCTYPE a SYSTEM 'file:///c:/x'>" + Envelope("")},
        {"an encoding that hides markup", "<?xml version='1.0' encoding='utf-7'?>" + Envelope("")},
        {"a tag with attributes without end", Envelope("<a" + attributes + "/>")},
        {"namespaces without end", Envelope(namespaces)},
    };
    const ULONGLONG start = GetTickCount64();
    for (const auto& row : rows)
        EXPECT_EQ(Clean(row.answer), "80004005") << row.what;
    EXPECT_LE(GetTickCount64() - start, 2000u);
}

TEST_F(CleanUp, RefusesBadArguments) {
    const std::string answer = Envelope("");
    std::string cleaned;
    EXPECT_EQ(CleanPrinterElements(answer, kQuery, nullptr), E_INVALIDARG);
    EXPECT_EQ(CleanPrinterElements(answer, nullptr, &cleaned), E_INVALIDARG);
    EXPECT_EQ(CleanPrinterElements(answer, L"<Other/>", &cleaned), E_FAIL);
}

using Fault = AnswerTest;

struct ParsedFault {
    HRESULT result = E_UNEXPECTED;
    SoapFault fault;
};

ParsedFault ParseFault(const std::string& document) {
    ParsedFault parsed;
    ComPtr<ISAXXMLReader> reader;
    EXPECT_EQ(CreateSaxReader(reader.Receive()), S_OK);
    CSoapFaultParser parser(&parsed.fault);
    parsed.result = ParseXml(reader.Get(), document, &parser);
    return parsed;
}

std::string Envelope11(const std::string& content) {
    return "<e:Envelope xmlns:e='" + kSoap11 + "'>" + content + "</e:Envelope>";
}

TEST_F(Fault, IsReadWithAllItsParts) {
    const ParsedFault parsed = ParseFault(Envelope11(
        "<e:Body><e:Fault><faultcode> e:Server </faultcode><faultstring>a <![CDATA[<]]>&amp; b</faultstring>"
        "<other><faultstring>not this</faultstring></other>"
        "<faultactor>http://p/</faultactor><detail>x<y:z "
        "xmlns:y='urn:y'><faultcode>1</faultcode></y:z></detail>"
        "</e:Fault></e:Body>"));
    EXPECT_EQ(parsed.result, S_OK);
    EXPECT_EQ(parsed.fault.code, L"Server");
    EXPECT_EQ(parsed.fault.string, L"a <& b");
    EXPECT_EQ(parsed.fault.actor, L"http://p/");
    EXPECT_EQ(parsed.fault.detail, L"x1");
    EXPECT_STREQ(SoapFaultMeaning(parsed.fault.code), L"SOAP Server Application Faulted");
    EXPECT_EQ(SoapFaultMeaning(L"Sender"), nullptr);
}

TEST_F(Fault, KeepsACodeOfAnotherKindAsItIs) {
    const std::string rows[][2] = {
        {"Client", "Client"}, {"x:Client", "x:Client"}, {"e:Client.Auth", "Client.Auth"}};
    for (const auto& [sent, stored] : rows) {
        const ParsedFault parsed = ParseFault(Envelope11("<e:Body><e:Fault xmlns:x='urn:x'><faultcode>" +
                                                         sent + "</faultcode></e:Fault></e:Body>"));
        EXPECT_EQ(parsed.fault.code, std::wstring(stored.begin(), stored.end()));
    }
}

TEST_F(Fault, IsRefusedUnlessItsStructureIsInOrder) {
    const std::string fault = "<e:Fault><faultcode>Client</faultcode></e:Fault>";
    const struct {
        const char* what;
        std::string document;
    } rows[] = {
        {"SOAP 1.2", "<e:Envelope xmlns:e='" + kSoap12 + "'><e:Body>" + fault + "</e:Body></e:Envelope>"},
        {"no namespace", "<Envelope><Body><Fault/></Body></Envelope>"},
        {"HTML", "<html/>"},
        {"no Envelope", "<e:Body xmlns:e='" + kSoap11 + "'>" + fault + "</e:Body>"},
        {"no Body", Envelope11(fault)},
        {"no Fault", Envelope11("<e:Body/>")},
        {"a stranger before the fault", Envelope11("<e:Body><x/>" + fault + "</e:Body>")},
        {"a part before the fault", Envelope11("<e:Body><faultcode/>" + fault + "</e:Body>")},
        {"a header before the body", Envelope11("<e:Header/><e:Body>" + fault + "</e:Body>")},
        {"two bodies", Envelope11("<e:Body/><e:Body>" + fault + "</e:Body>")},
        {"two faults", Envelope11("<e:Body>" + fault + fault + "</e:Body>")},
        {"cut short", Envelope11("<e:Body>" + fault + "</e:Body>").substr(0, 130)},
        {"a document type declaration", "<!DOCTYPE x>" + Envelope11("<e:Body>" + fault + "</e:Body>")},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ParseFault(row.document).result, E_FAIL) << row.what;
}

}  // namespace
}  // namespace vlm
