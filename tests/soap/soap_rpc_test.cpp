// The department-ID check on the wire, and what its answers may look like.
#include <gtest/gtest.h>

#include <random>

#include "soap/check_user_password.h"
#include "soap/check_user_password_service.h"
#include "soap/soap_fault.h"
#include "soap/soap_root_handler.h"
#include "tests/soap/documents.h"
#include "tests/support/scripted_server.h"
#include "tests/support/text.h"
#include "util/xml_text.h"

namespace vlm {
namespace {

using test::Answer;
using test::Body;
using test::Body11;
using test::Envelope;
using test::Envelope11;
using test::Http;
using test::kSoap11;
using test::kSoap12;
using test::Repeat;
using test::ScriptedServer;
using Proxy = CheckUserPasswordService::CCheckUserPasswordServiceT<CVlSoapWininetClient>;

const std::string kService = "http://velun.example/ns/active/deptid";

std::string Response(const std::string& content) {
    return Body("<m:CheckUserPasswordResponse xmlns:m='" + kService + "'>" + content +
                "</m:CheckUserPasswordResponse>");
}

class SoapRpc : public testing::Test {
 protected:
    // "allowed", "refused", or "failed" for an answer that cannot be read.
    static std::string Read(const std::string& document) {
        SoapValues record(5);
        CVlSoapRootHandler handler(CheckUserPasswordService::kOperation, &record);
        const HRESULT hr = test::Parse(document, &handler);
        if (FAILED(hr)) return hr == E_FAIL ? "failed" : "failed otherwise";
        return std::get<bool>(record[4]) ? "allowed" : "refused";
    }

    const ComApartment com_{COINIT_APARTMENTTHREADED};
};

TEST_F(SoapRpc, AsksWithEveryFieldInTheOrderOfTheWire) {
    const std::string expected =
        "<soap:Envelope xmlns:soap=\"" + kSoap12 +
        "\" xmlns:soapenc=\"http://www.w3.org/2003/05/soap-encoding\">"
        "<soap:Body soap:encodingStyle=\"http://www.w3.org/2003/05/soap-encoding\">"
        "<snp:CheckUserPassword xmlns:snp=\"" +
        kService +
        "\"><username>J&#x0000FC;rgen &amp; Co</username><domain>&lt;d&gt;</domain><type>dept</type>"
        "<password></password></snp:CheckUserPassword></soap:Body></soap:Envelope>";
    ScriptedServer server(Answer(Http("200 OK", Response("<result>true</result>"))));
    bool allowed = false;
    EXPECT_EQ(
        CheckUserPassword((server.Url() + L"x").c_str(), L"J\u00fcrgen & Co", L"", L"dept", L"<d>", &allowed),
        S_OK);
    EXPECT_TRUE(allowed);
    const std::string request = server.LastRequest();
    EXPECT_TRUE(request.starts_with("POST /wsd/print/x HTTP/1.0\r\n"));
    EXPECT_NE(request.find("SOAPAction: \"\"\r\n"), std::string::npos);
    EXPECT_EQ(request.substr(request.find("\r\n\r\n") + 4), expected);
}

TEST_F(SoapRpc, FailsWithItsClientErrorAndLeavesTheResult) {
    const std::string fault11 = Body11("<e:Fault><faultcode>e:Client</faultcode></e:Fault>");
    const std::string whole = Response("<result>1</result>");
    const struct {
        const char* what;
        std::string answer;
        SoapClientError clientError;
    } rows[] = {
        {"a SOAP 1.1 fault", Http("500 Oops", fault11), SoapClientError::kSoapFault},
        {"a SOAP 1.2 fault", Http("500 Oops", Body("<s:Fault/>")), SoapClientError::kParseFault},
        {"another body", Http("200 OK", "<html/>"), SoapClientError::kParse},
        {"another status", Http("404 Not Found", "no"), SoapClientError::kParse},
        {"a body that is cut short", "HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n" + whole,
         SoapClientError::kParse},
        {"nothing", "", SoapClientError::kSuccess},
    };
    for (const auto& row : rows) {
        ScriptedServer server(Answer(row.answer));
        Proxy proxy;
        proxy.SetTimeout(500);
        ASSERT_EQ(proxy.SetUrl(server.Url()), S_OK);
        for (bool result : {true, false}) {
            const bool before = result;
            EXPECT_EQ(proxy.CheckUserPassword(SoapValue(), SoapValue(), SoapValue(), SoapValue(), &result),
                      E_FAIL)
                << row.what;
            EXPECT_EQ(proxy.GetClientError(), row.clientError) << row.what;
            EXPECT_EQ(result, before) << row.what;
        }
    }
    Proxy proxy;
    EXPECT_EQ(proxy.CheckUserPassword(SoapValue(), SoapValue(), SoapValue(), SoapValue(), nullptr),
              E_POINTER);
    bool result = false;
    EXPECT_EQ(proxy.CheckUserPassword(SoapValue(true), SoapValue(), SoapValue(), SoapValue(), &result),
              E_FAIL);
    EXPECT_EQ(proxy.GetClientError(), SoapClientError::kGenerate);
    EXPECT_EQ(CheckUserPassword(L"http://p/", nullptr, L"", L"", L"", &result), E_INVALIDARG);
}

TEST_F(SoapRpc, ReadsEveryFormOfAnAnswer) {
    const std::string result = "<result>true</result>";
    const std::string deep = Repeat(90, "<x>") + "true" + Repeat(90, "</x>");
    // A good answer with something more in front of its body, or behind it.
    const auto inFront = [&](const std::string& more) {
        return Response(result).insert(Envelope("").find('>') + 1, more);
    };
    const auto behind = [&](const std::string& more) {
        const std::string good = Response(result);
        return std::string(good).insert(good.rfind('<'), more);
    };
    const std::string split = "t<!-- -->r<![CDATA[u]]>&#101;";
    const struct {
        const char* what;
        std::string document;
        const char* expected = "failed";
    } rows[] = {
        {"false", Response("<result> 0 </result>"), "refused"},
        {"white space and 1", Response("\n<result>\t1\r\n</result> "), "allowed"},
        {"text in pieces", Response("<result>" + split + "</result>"), "allowed"},
        {"a prefixed field", Response("<m:result>true</m:result>"), "allowed"},
        {"strangers around and inside",
         Response("<a><result>false</result></a><result><b>0</b>true</result>" + deep), "allowed"},
        {"fields that are not out", Response("<username>x</username><username>x</username>" + result),
         "allowed"},
        {"a header", inFront("<s:Header><x s:mustUnderstand='0'>0</x></s:Header>"), "allowed"},
        {"a stranger behind the response",
         Body("<m:CheckUserPasswordResponse xmlns:m='" + kService + "'>" + result +
              "</m:CheckUserPasswordResponse><other/>"),
         "allowed"},
        {"no result", Response("")},
        {"result twice", Response(result + result)},
        {"another word", Response("<result>yes</result>")},
        {"an empty result", Response("<result/>")},
        {"a null", Response("<result xmlns:i='http://www.w3.org/2001/XMLSchema-instance' i:nil='true'/>")},
        {"a result of another namespace", Response("<x:result xmlns:x='urn:x'>true</x:result>")},
        {"another method",
         Body("<m:OtherResponse xmlns:m='" + kService + "'>" + result + "</m:OtherResponse>")},
        {"another service", Body("<CheckUserPasswordResponse>" + result + "</CheckUserPasswordResponse>")},
        {"a fault", Body("<s:Fault/>")},
        {"no body", Envelope("")},
        {"an empty body", Envelope("<s:Body/>")},
        {"two bodies", behind("<s:Body/>")},
        {"a header that must be understood", inFront("<s:Header><x s:mustUnderstand='true'/></s:Header>")},
        {"a header behind the body", behind("<s:Header/>")},
        {"SOAP 1.1", Body11("")},
        {"a document type", "<!DOCTYPE x>" + Response(result)},
        {"depth", Response(Repeat(10'000, "<x>") + Repeat(10'000, "</x>") + result)},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Read(row.document), row.expected) << row.what << "\n" << row.document;
}

TEST_F(SoapRpc, FailsOnAnAnswerThatIsCutAnywhere) {
    const std::string whole = Response("<result>true</result>");
    for (size_t length = 0; length < whole.size(); ++length) {
        ASSERT_EQ(Read(whole.substr(0, length)), "failed") << whole.substr(0, length);
    }
}

// Cuts pieces out of a document and puts pieces of it in.
std::string Damaged(const std::string& whole, int times, std::mt19937* random) {
    std::string document = whole;
    for (int i = 0; i < times && !document.empty(); ++i) {
        const size_t at = (*random)() % document.size();
        const size_t length = (*random)() % 30;
        if ((*random)() % 2 == 0) {
            document.erase(at, length);
        } else {
            document.insert(at, whole.substr((*random)() % whole.size(), length));
        }
    }
    return document;
}

// For the parser's sake and ours: nothing crashes, and nothing but a verdict, a fault or a failure comes out.
TEST_F(SoapRpc, SurvivesDamagedAnswers) {
    const std::string whole =
        Envelope("<s:Header><h/></s:Header><s:Body><m:CheckUserPasswordResponse xmlns:m='" + kService +
                 "'><x>1</x><result>true</result></m:CheckUserPasswordResponse></s:Body>");
    const std::string fault = Body11(
        "<e:Fault><faultcode>e:Client</faultcode><x><y/></x><faultstring>s</faultstring>"
        "<detail><z>1</z></detail></e:Fault>");
    std::mt19937 random(5);
    ComPtr<ISAXXMLReader> reader;  // is used again after each failure
    ASSERT_EQ(CreateSaxReader(reader.Receive()), S_OK);
    for (int round = 0; round < 1500; ++round) {
        const std::string document = Damaged(whole, 1 + round % 5, &random);
        const std::string outcome = Read(document);
        ASSERT_TRUE(outcome == "allowed" || outcome == "refused" || outcome == "failed") << outcome << "\n"
                                                                                         << document;
        const std::string damagedFault = Damaged(fault, 1 + round % 5, &random);
        SoapFault read;
        CSoapFaultParser parser(&read);
        const HRESULT hr = ParseXml(reader.Get(), damagedFault, &parser);
        ASSERT_TRUE(hr == S_OK || hr == E_FAIL) << hr << "\n" << damagedFault;
    }
}

using SoapFaultText = SoapRpc;

HRESULT ParseFault(const std::string& document, SoapFault* fault) {
    CSoapFaultParser parser(fault);
    return test::Parse(document, &parser);
}

TEST_F(SoapFaultText, IsReadWithAllItsParts) {
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

TEST_F(SoapFaultText, KeepsACodeOfAnotherKindAsItIs) {
    const std::string rows[][2] = {
        {"Client", "Client"}, {"x:Client", "x:Client"}, {"e:Client.Auth", "Client.Auth"}};
    for (const auto& [sent, stored] : rows) {
        SoapFault fault;
        ParseFault(Body11("<e:Fault xmlns:x='urn:x'><faultcode>" + sent + "</faultcode></e:Fault>"), &fault);
        EXPECT_EQ(fault.code, std::wstring(stored.begin(), stored.end()));
    }
}

TEST_F(SoapFaultText, IsRefusedUnlessItsStructureIsInOrder) {
    const std::string fault = "<e:Fault><faultcode>Client</faultcode></e:Fault>";
    const struct {
        const char* what;
        std::string document;
    } rows[] = {
        {"no namespace", "<Envelope><Body><Fault/></Body></Envelope>"},
        {"no Envelope", "<e:Body xmlns:e='" + kSoap11 + "'>" + fault + "</e:Body>"},
        {"no Body", Envelope11(fault)},
        {"no Fault", Body11("")},
        {"a stranger before the fault", Body11("<x/>" + fault)},
        {"a part before the fault", Body11("<faultcode/>" + fault)},
        {"a header before the body", Envelope11("<e:Header/><e:Body>" + fault + "</e:Body>")},
        {"two bodies", Envelope11("<e:Body/><e:Body>" + fault + "</e:Body>")},
        {"two faults", Body11(fault + fault)},
    };
    SoapFault read;
    for (const auto& row : rows)
        EXPECT_EQ(ParseFault(row.document, &read), E_FAIL) << row.what;
}

constexpr SoapField kPointFields[] = {{L"x", XsdType::kInt}, {L"y", XsdType::kInt, kSoapNullable}};
constexpr SoapUserType kPoint{L"Point", L"urn:types", kPointFields};
constexpr SoapField kFields[] = {{L"asked", XsdType::kString, kSoapIn},
                                 {L"return", XsdType::kUnsignedInt, kSoapOut},
                                 {L"names", XsdType::kString, kSoapOut | kSoapArray | kSoapNullable},
                                 {L"points", XsdType::kString, kSoapOut | kSoapArray, &kPoint}};
constexpr SoapField kHeaders[] = {{L"session", XsdType::kString}};
constexpr SoapOperation kDraw{L"Draw", L"urn:s", kFields, kHeaders};

TEST_F(SoapRpc, ReadsArraysAndUserTypes) {
    const std::string nil = " xmlns:i='http://www.w3.org/2001/XMLSchema-instance' i:nil='1'";
    const std::string start = "<s:Header><session xmlns='urn:s' s:mustUnderstand='1' xmlns:s='" + kSoap12 +
                              "'/></s:Header><s:Body><DrawResponse xmlns='urn:s'>";
    const std::string points =
        "<points><p><y" + nil + "/><x>7</x><z/></p><p><x>-1</x></p><p><x>1</x><y>2</y></p></points>";
    const auto read = [&](const std::string& content, SoapValues* record) {
        *record = SoapValues(4);
        (*record)[0] = SoapValue(std::wstring(L"kept"));
        CVlSoapRootHandler handler(kDraw, record);
        return test::Parse(Envelope(start + content + "</DrawResponse></s:Body>"), &handler);
    };
    const auto point = [](SoapValue x, SoapValue y) {
        return SoapValue(SoapValues{std::move(x), std::move(y)});
    };
    const auto number = [](std::int32_t n) { return SoapValue(n); };
    const SoapValue allPoints(
        SoapValues{point(number(7), {}), point(number(-1), {}), point(number(1), number(2))});
    const SoapValue count(std::uint32_t{21});
    SoapValues record;

    ASSERT_EQ(read(points + "<names><a>n</a><b/></names><return> 21 </return>", &record), S_OK);
    EXPECT_EQ(record[0], SoapValue(std::wstring(L"kept")));
    EXPECT_EQ(record[1], count);
    EXPECT_EQ(record[2], SoapValue(SoapValues{SoapValue(std::wstring(L"n")), SoapValue(std::wstring())}));
    EXPECT_EQ(record[3], allPoints);

    ASSERT_EQ(read("<points/><return>21</return><names" + nil + "/>", &record), S_OK);
    EXPECT_TRUE(record[2].IsNull());
    EXPECT_EQ(record[3], SoapValue(SoapValues()));

    const char* const refused[] = {"<return>-1</return><points/>", "<return>21</return>",
                                   "<return>21</return><points><p><y>1</y></p></points>",
                                   "<return>21</return><points><p><x>1</x><x>1</x></p></points>",
                                   "<return>21</return><points><p><x>a</x></p></points>"};
    for (const char* content : refused)
        EXPECT_EQ(read(content, &record), E_FAIL) << content;
}

constexpr SoapField kTextFields[] = {{L"text", XsdType::kString, kSoapOut}};
constexpr SoapOperation kSay{L"Say", L"urn:s", kTextFields, {}};

// Escaped as our own writer does it, which a foreign parser has vouched for; long enough for several events.
// Without carriage returns: Wine's reader makes a line feed even of "&#xD;".
TEST_F(SoapRpc, ReadsEveryTextAsItWasMeant) {
    std::wstring text;
    for (int i = 0; i < 3000; ++i) {
        text += L"&<>\"' \t\n]\u0085\u2028\u20ac\ufffd";
        text += {static_cast<wchar_t>(0xD800 + i % 0x400), static_cast<wchar_t>(0xDC00 + i * 7 % 0x400)};
        text += static_cast<wchar_t>(0x20 + i * 17 % 0xD7E0);
    }
    std::string escaped;
    AppendEscapedAscii(&escaped, text);
    SoapValues record(1);
    CVlSoapRootHandler handler(kSay, &record);
    ASSERT_EQ(
        test::Parse(Body("<SayResponse xmlns='urn:s'><text>" + escaped + "</text></SayResponse>"), &handler),
        S_OK);
    EXPECT_TRUE(std::get<std::wstring>(record[0]) == text);
}

}  // namespace
}  // namespace vlm
