// What is made of a printer's answer: the clean-up that the Bidi engine relies on, and the fault.
#include <gtest/gtest.h>

#include <string>

#include "soap/printer_elements.h"
#include "soap/soap_fault.h"
#include "tests/soap/documents.h"
#include "tests/support/text.h"

namespace vlm {
namespace {

using test::Body;
using test::Body11;
using test::Envelope11;
using test::kPrint;
using test::kSoap11;
using test::kSoap12;

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
    const std::string utf8 = Body("<a xmlns='" + kPrint + "'>\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80</a>");
    const std::string ascii = Body("<a xmlns='" + kPrint + "'>&#228;&#x20AC;&#x1F600;</a>");
    const std::string latin = "<?xml version='1.0' encoding='windows-1252'?>" +
                              Body("<a xmlns='" + kPrint + "'>\xE4\x80&#x1F600;</a>");
    const std::string utf16 = test::Utf16("<?xml version='1.0' encoding='utf-16'?>" + ascii);
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
        {"SOAP 1.1", Body11("")},
        {"cut short", Body("<a>").substr(0, 90)},
        {"two roots", Body("") + Body("")},
        {"text behind the root", Body("") + "x"},
        {"a prefix that nobody declared", Body("<x:a/>")},
        {"an undefined entity", Body("&nbsp;")},
        {"bytes that are no UTF-8", Body("\xC3\x28")},
        {"a document type declaration", "<!DOCTYPE a SYSTEM 'file:///c:/x'>" + Body("")},
        {"an encoding that hides markup", "<?xml version='1.0' encoding='utf-7'?>" + Body("")},
        {"a tag with attributes without end", Body("<a" + attributes + "/>")},
        {"namespaces without end", Body(namespaces)},
    };
    const ULONGLONG start = GetTickCount64();
    for (const auto& row : rows)
        EXPECT_EQ(Clean(row.answer), "80004005") << row.what;
    EXPECT_LE(GetTickCount64() - start, 2000u);
}

TEST_F(CleanUp, RefusesBadArguments) {
    const std::string answer = Body("");
    std::string cleaned;
    EXPECT_EQ(CleanPrinterElements(answer, kQuery, nullptr), E_INVALIDARG);
    EXPECT_EQ(CleanPrinterElements(answer, nullptr, &cleaned), E_INVALIDARG);
    EXPECT_EQ(CleanPrinterElements(answer, L"<Other/>", &cleaned), E_FAIL);
}

using Fault = AnswerTest;

HRESULT ParseFault(const std::string& document, SoapFault* fault) {
    CSoapFaultParser parser(fault);
    return test::Parse(document, &parser);
}

TEST_F(Fault, IsReadWithAllItsParts) {
    SoapFault fault;
    EXPECT_EQ(
        ParseFault(
            Body11(
                "<e:Fault><faultcode> e:Server </faultcode><faultstring>a <![CDATA[<]]>&amp; b</faultstring>"
                "<other><faultstring>not this</faultstring></other>"
                "<faultactor>http://p/</faultactor><detail>x<y:z "
                "xmlns:y='urn:y'><faultcode>1</faultcode></y:z></detail>"
                "</e:Fault>"),
            &fault),
        S_OK);
    EXPECT_EQ(fault.code, L"Server");
    EXPECT_EQ(fault.string, L"a <& b");
    EXPECT_EQ(fault.actor, L"http://p/");
    EXPECT_EQ(fault.detail, L"x1");
    EXPECT_STREQ(SoapFaultMeaning(fault.code), L"SOAP Server Application Faulted");
    EXPECT_EQ(SoapFaultMeaning(L"Sender"), nullptr);
}

TEST_F(Fault, KeepsACodeOfAnotherKindAsItIs) {
    const std::string rows[][2] = {
        {"Client", "Client"}, {"x:Client", "x:Client"}, {"e:Client.Auth", "Client.Auth"}};
    for (const auto& [sent, stored] : rows) {
        SoapFault fault;
        ParseFault(Body11("<e:Fault xmlns:x='urn:x'><faultcode>" + sent + "</faultcode></e:Fault>"), &fault);
        EXPECT_EQ(fault.code, std::wstring(stored.begin(), stored.end()));
    }
}

TEST_F(Fault, IsRefusedUnlessItsStructureIsInOrder) {
    const std::string fault = "<e:Fault><faultcode>Client</faultcode></e:Fault>";
    const struct {
        const char* what;
        std::string document;
    } rows[] = {
        {"SOAP 1.2", Body("<s:Fault><faultcode>Client</faultcode></s:Fault>")},
        {"no namespace", "<Envelope><Body><Fault/></Body></Envelope>"},
        {"HTML", "<html/>"},
        {"no Envelope", "<e:Body xmlns:e='" + kSoap11 + "'>" + fault + "</e:Body>"},
        {"no Body", Envelope11(fault)},
        {"no Fault", Body11("")},
        {"a stranger before the fault", Body11("<x/>" + fault)},
        {"a part before the fault", Body11("<faultcode/>" + fault)},
        {"a header before the body", Envelope11("<e:Header/><e:Body>" + fault + "</e:Body>")},
        {"two bodies", Envelope11("<e:Body/><e:Body>" + fault + "</e:Body>")},
        {"two faults", Body11(fault + fault)},
        {"cut short", Body11(fault).substr(0, 130)},
        {"a document type declaration", "<!DOCTYPE x>" + Body11(fault)},
    };
    SoapFault read;
    for (const auto& row : rows)
        EXPECT_EQ(ParseFault(row.document, &read), E_FAIL) << row.what;
}

}  // namespace
}  // namespace vlm
