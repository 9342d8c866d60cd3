// The transport against a printer that does everything wrong that a server can do on a connection.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "soap/printer_elements.h"
#include "soap/printer_service.h"
#include "tests/soap/documents.h"
#include "tests/support/resources.h"
#include "tests/support/scripted_server.h"
#include "tests/support/text.h"
#include "util/streams.h"

namespace vlm {
namespace {

using test::AfterRequest;
using test::Answer;
using test::Hold;
using test::Http;
using test::ReadRequest;
using test::Repeat;
using test::Reset;
using test::Script;
using test::ScriptedServer;
using test::Send;
using test::Step;
using Proxy = PrinterService::CPrinterServiceT<CVlSoapWininetClient>;

constexpr DWORD kTimeout = 200;
// For threads, the scheduler, and a machine that is busy with other tests.
constexpr DWORD kSlack = 700;

const std::string kEnvelope = test::Body("<p:GetPrinterElementsResponse xmlns:p='" + test::kPrint + "'/>");
const std::string kFault11 = test::Body11(
    "<e:Fault><faultcode>e:Client</faultcode><faultstring>no &amp; never</faultstring></e:Fault>");
const std::string kFault12 = test::Body("<s:Fault><s:Code><s:Value>s:Receiver</s:Value></s:Code></s:Fault>");
const std::string kHtml = "<html><head></head><body><p>Not found<br></body></html>";

struct Ended {
    HRESULT transport = E_UNEXPECTED;
    SoapClientError clientError = SoapClientError::kSuccess;
    HRESULT whole = E_UNEXPECTED;  // with the clean-up of what came
    DWORD milliseconds = 0;
    std::wstring faultString;
};

Ended Exchange(const std::wstring& url) {
    const ULONGLONG start = GetTickCount64();
    Ended outcome;
    Proxy proxy;
    EXPECT_EQ(proxy.SetUrl(url), S_OK);
    proxy.SetTimeout(kTimeout);
    std::string answer;
    outcome.transport = outcome.whole = proxy.GetPrinterElements("<request/>", &answer);
    if (SUCCEEDED(outcome.transport)) {
        std::string clean;
        outcome.whole = CleanPrinterElements(answer, L"<EnumQueryElement/>", &clean);
    }
    outcome.clientError = proxy.GetClientError();
    outcome.faultString = proxy.GetFault().string;
    outcome.milliseconds = static_cast<DWORD>(GetTickCount64() - start);
    return outcome;
}

std::string Chunk(const std::string& body) {
    char size[16];
    snprintf(size, sizeof size, "%zx\r\n", body.size());
    return size + body + "\r\n";
}

std::string Announced(size_t length, const std::string& body) {
    return "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" +
           body;
}

std::string ManyNamespaces() {
    std::string elements;
    for (int i = 0; i < 1000; ++i)
        elements += "<a xmlns='urn:" + std::to_string(i) + "'/>";
    return elements;
}

const std::string kOk = "HTTP/1.1 200 OK\r\n";
const std::string kOops = "HTTP/1.1 500 Oops\r\n\r\n";
const std::string kTooLong = Announced(kEnvelope.size() + 5, kEnvelope);
const std::string kChunkedHead = "HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n";
const std::string kOpenHead = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";

const Step kDrips = Send(" ", 400, 20);
const Step kFlood = Send(std::string(1 << 16, 'x'), 1'000'000);

// How an exchange ends: with an answer, with one that the clean-up refuses, with none, or with status 500 and
// a fault that can be read or cannot.
enum Ending { kAnswered, kUnusable, kFailed, kFault, kBadFault };

constexpr DWORD kAtOnce = 0;
constexpr DWORD kOneReceive = kTimeout;
constexpr DWORD kHead = 2 * kTimeout;
constexpr DWORD kBody = 6 * kTimeout;

struct Row {
    const char* name;
    Ending ending;
    Script script;
    DWORD bound = kAtOnce;
    const wchar_t* scheme = L"http";
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

const Row kRows[] = {
    {"WholeAnswer", kAnswered, Answer(Http("200 OK", kEnvelope))},
    {"Chunked", kAnswered,
     Answer(kChunkedHead + Chunk(kEnvelope.substr(0, 50)) + Chunk(kEnvelope.substr(50)) + "0\r\n\r\n")},
    {"ChunkedWithALengthToo", kAnswered,
     Answer("HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n" + kChunkedHead.substr(17) + Chunk(kEnvelope) +
            "0\r\n\r\n")},
    {"EndsWithTheConnection", kAnswered, Answer(kOpenHead + kEnvelope)},
    {"HttpOneZero", kAnswered, Answer("HTTP/1.0 200 OK\r\n\r\n" + kEnvelope)},
    {"InTwoPieces", kAnswered,
     AfterRequest(Send(Announced(kEnvelope.size(), kEnvelope.substr(0, 9)), 1, 100),
                  Send(kEnvelope.substr(9))),
     100},
    {"Html", kUnusable, Answer(Http("200 OK", kHtml))},
    {"SoapOneOne", kUnusable, Answer(Http("200 OK", test::Body11("")))},
    {"NamespacesWithoutEnd", kUnusable, Answer(Http("200 OK", test::Body(ManyNamespaces())))},
    {"NotFound", kUnusable, Answer(Http("404 Not Found", kHtml))},
    {"Unauthorized", kUnusable,
     Answer(Http("401 Unauthorized", kHtml, "WWW-Authenticate: Basic realm=\"p\"\r\n"))},
    {"BadRequestWithAnEnvelope", kAnswered, Answer(Http("400 Bad Request", kEnvelope))},
    {"RedirectToItself", kUnusable, Answer(Http("302 Found", "", "Location: /wsd/print/\r\n"))},
    {"Gzip", kUnusable,
     Answer(Http("200 OK", "\x1f\x8b\x08" + std::string(20, '\0'), "Content-Encoding: gzip\r\n"))},
    {"EmptyBody", kUnusable, Answer(Http("200 OK", ""))},
    {"NoContent", kUnusable, Answer("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n")},
    {"NoHttpAtAll", kUnusable, Answer("220 printer ready\r\n\r\nLPD\r\n")},
    {"StatusZero", kFailed, Answer(Http("0 What", kEnvelope))},
    {"ClosedOnAccept", kFailed, {}},
    {"ClosedAfterTheRequest", kFailed, AfterRequest()},
    {"ResetAfterTheRequest", kFailed, AfterRequest(Reset())},
    {"ClosedInTheHead", kUnusable, Answer("HTTP/1.1 200 OK\r\nContent-Le")},
    {"ClosedInTheBody", kFailed, Answer(Announced(kEnvelope.size(), kEnvelope.substr(0, 60)))},
    {"ClosedInAChunk", kAnswered, Answer(kChunkedHead + "fff\r\n" + kEnvelope)},
    {"ClosedInTheOpenBody", kUnusable, Answer(kOpenHead + kEnvelope.substr(0, 60))},
    {"LengthTooSmall", kUnusable, Answer(Announced(kEnvelope.size() - 5, kEnvelope))},
    {"LengthTooLargeThenClosed", kFailed, Answer(kTooLong)},
    {"LengthTooLargeThenMute", kFailed, AfterRequest(Send(kTooLong), Hold()), kOneReceive},
    {"LengthIsNoNumber", kAnswered,
     Answer("HTTP/1.1 200 OK\r\nContent-Length: many\r\n" + kOpenHead.substr(17) + kEnvelope)},
    {"Mute", kFailed, AfterRequest(Hold()), kHead},
    {"MuteOnTls", kFailed, {Hold()}, kHead, L"https"},
    {"NoTlsOnTlsPort", kFailed, {Send("HTTP/1.1 400 Bad Request\r\n\r\n")}, kHead, L"https"},
    {"HeadInDrips", kFailed, AfterRequest(Send(kOk), Send("X", 400, 20)), kHead},
    {"BodyInDrips", kFailed, AfterRequest(Send(kOpenHead), kDrips), kBody},
    {"ChunkSizeInDrips", kFailed, AfterRequest(Send(kChunkedHead), Send("0", 400, 20)), kBody},
    {"BodyWithoutEnd", kFailed, AfterRequest(Send(kOpenHead), Send(std::string(1 << 20, ' '), 100)), kBody},
    // As long as the client takes it.
    {"AnnouncedLengthWithoutEnd", kFailed,
     AfterRequest(Send("HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775808\r\n\r\n"), kFlood), kBody},
    {"ChunkExtensionWithoutEnd", kFailed, AfterRequest(Send(kChunkedHead + "5;"), kFlood), kBody},
    {"FaultWithoutEnd", kBadFault, AfterRequest(Send(kOops), kFlood), kBody},
    {"StatusLineWithoutEnd", kFailed, AfterRequest(Send("HTTP/1.1 200 "), kFlood), kHead},
    {"HeaderLinesWithoutEnd", kFailed, AfterRequest(Send(kOk), Send("X: y\r\n", 1'000'000)), kHead},
    {"ContinueWithoutEnd", kFailed, AfterRequest(Send("HTTP/1.1 100 Continue\r\n\r\n", 1'000'000)), kHead},
    {"DepthWithoutEnd", kUnusable, AfterRequest(Send(kOpenHead), Send(Repeat(1000, "<a>"), 100)), kBody},
    {"Fault11", kFault, Answer(Http("500 Internal Server Error", kFault11))},
    {"Fault12", kBadFault, Answer(Http("500 Internal Server Error", kFault12))},
    {"FaultWithoutXml", kBadFault, Answer(Http("500 Oops", kHtml))},
    {"FaultWithoutBody", kBadFault, Answer(Http("500 Oops", ""))},
    {"FaultInDrips", kBadFault, AfterRequest(Send(kOops), kDrips), kBody},
};

class Misbehaviour : public testing::TestWithParam<Row> {
 protected:
    const ComApartment com_{COINIT_APARTMENTTHREADED};
};

bool IsWithin(const test::Resources& now, const test::Resources& before) {
    return now.handles <= before.handles && now.threads <= before.threads &&
           now.heapBlocks <= before.heapBlocks;
}

TEST_P(Misbehaviour, EndsInTimeWithItsResultAndLeavesNothing) {
    const Row& row = GetParam();
    ScriptedServer server(row.script);
    const std::wstring url = server.Url(row.scheme);

    // Wine 10 gives each new thread some thirty small blocks at once for its own, until that many threads
    // have been.
    const ScriptedServer healthy(kRows[0].script);
    for (int thread = 0; thread < 32; ++thread)
        Exchange(healthy.Url(L"http"));

    constexpr int kMostExchanges = 16;
    // What WinINet, MSXML and the runtime make once, or once for each thread of the pool, is not left behind;
    // what is, is left by every exchange.
    test::Resources before{};
    test::Resources after{};
    bool nothingLeft = false;
    for (int exchange = 0; exchange < kMostExchanges && !nothingLeft; ++exchange) {
        const Ended outcome = Exchange(url);
        EXPECT_EQ(outcome.transport, row.ending <= kUnusable ? S_OK : E_FAIL);
        EXPECT_EQ(outcome.whole, row.ending == kAnswered ? S_OK : E_FAIL);
        EXPECT_EQ(outcome.clientError, row.ending == kFault      ? SoapClientError::kSoapFault
                                       : row.ending == kBadFault ? SoapClientError::kParseFault
                                                                 : SoapClientError::kSuccess);
        EXPECT_LE(outcome.milliseconds, row.bound + kSlack);
        EXPECT_EQ(outcome.faultString, row.ending == kFault ? L"no & never" : L"");
        server.HangUp();
        after = test::CountResources();
        // Threads and sockets end a little later than those who wait for them.
        for (int wait = 0; wait < 30 && exchange > 0 && !IsWithin(after, before); ++wait) {
            Sleep(10);
            after = test::CountResources();
        }
        nothingLeft = IsWithin(after, before);
        before = after;
    }
    EXPECT_TRUE(nothingLeft) << after << " and rising";
}

INSTANTIATE_TEST_SUITE_P(Printer, Misbehaviour, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

class Transport : public testing::Test {
 protected:
    const ComApartment com_{COINIT_APARTMENTTHREADED};
};

TEST_F(Transport, SendsTheRequestAsPrintServicesExpectIt) {
    ScriptedServer server(Answer(Http("200 OK", kEnvelope)));
    const std::wstring url = server.Url() + L"?a&b";
    const wchar_t query[] =
        L"<EnumQueryElement xmlns:v=\"urn:v\"><Name>v:\u00c4</Name><Other/></EnumQueryElement>";
    std::string ids[2][2];
    for (auto& [messageId, from] : ids) {
        ComPtr<IStream> response;
        ASSERT_EQ(GetPrinterElements(url.c_str(), query, response.Receive()), S_OK);
        const std::string request = server.LastRequest();
        const std::string head = request.substr(0, request.find("\r\n\r\n") + 2);
        const std::string body = request.substr(head.size() + 2);
        EXPECT_TRUE(head.starts_with("POST /wsd/print/?a&b HTTP/1.0\r\n")) << head;
        for (const char* line : {"Accept: text/*", "User-Agent: VCSoapClient", "SOAPAction: \"\"",
                                 "Content-Type: application/soap+xml", "Connection: Keep-Alive"}) {
            EXPECT_NE(head.find(std::string("\r\n") + line + "\r\n"), std::string::npos) << line << "\n"
                                                                                         << head;
        }
        EXPECT_NE(body.find("/wsd/print/?a&amp;b</wsa:To>"), std::string::npos);
        EXPECT_NE(body.find("xmlns:v=\"urn:v\"><pri:Name>v:&#x0000C4;</pri:Name></"), std::string::npos)
            << body;
        std::smatch found;
        const std::regex uuids(
            "<wsa:MessageID>urn:uuid:([0-9a-f-]{36})</.*<wsa:From><wsa:Address>urn:uuid:"
            "([0-9a-f-]{36})</");
        ASSERT_TRUE(std::regex_search(body, found, uuids)) << body;
        messageId = found[1];
        from = found[2];
    }
    EXPECT_NE(ids[0][0], ids[0][1]);
    EXPECT_NE(ids[0][0], ids[1][0]);
    EXPECT_NE(ids[0][1], ids[1][1]);
}

// The public operations' own time-out is five seconds, so there is one mute printer for both ways in.
TEST_F(Transport, GivesUpOnAMutePrinterAfterItsTimeout) {
    const ScriptedServer server(AfterRequest(Hold()));
    const ULONGLONG start = GetTickCount64();
    ComPtr<IStream> query;
    ASSERT_EQ(MakeStream("<EnumQueryElement/>", query.Receive()), S_OK);
    ComPtr<IStream> response;
    EXPECT_EQ(GetPrinterElementsFromStream(server.Url().c_str(), query.Get(), response.Receive()), E_FAIL);
    EXPECT_FALSE(response);
    const ULONGLONG elapsed = GetTickCount64() - start;
    EXPECT_GE(elapsed, 4500u);
    EXPECT_LE(elapsed, 10'000u + kSlack);
}

TEST_F(Transport, FailsAtOnceWhereNobodyListens) {
    std::wstring url;
    {
        const ScriptedServer server({});
        url = server.Url();
    }
    const Ended outcome = Exchange(url);
    EXPECT_EQ(outcome.transport, E_FAIL);
    EXPECT_EQ(outcome.clientError, SoapClientError::kSuccess);
    EXPECT_LE(outcome.milliseconds, kSlack);
}

TEST_F(Transport, GivesUpOnAConnectThatIsNeverAnswered) {
    // A listener whose queue is full: the system drops further attempts.
    const ScriptedServer busy({Hold()});
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(busy.Port());
    std::vector<SOCKET> queue;
    for (int i = 0; i < 40; ++i) {
        queue.push_back(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
        u_long nonBlocking = 1;
        ioctlsocket(queue.back(), static_cast<long>(FIONBIO), &nonBlocking);
        static_cast<void>(connect(queue.back(), reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    fd_set last;
    FD_ZERO(&last);
    FD_SET(queue.back(), &last);
    timeval soon{0, 100'000};
    ASSERT_EQ(select(0, nullptr, &last, nullptr, &soon), 0) << "there is room in the queue";
    const Ended outcome = Exchange(busy.Url());
    EXPECT_EQ(outcome.transport, E_FAIL);
    EXPECT_LE(outcome.milliseconds, kHead + kSlack);
    for (const SOCKET waiting : queue)
        closesocket(waiting);
}

TEST_F(Transport, CarriesSeveralExchangesOverOneConnection) {
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n";
    const ScriptedServer server(
        {ReadRequest(), Send(answer + "<a/>"), ReadRequest(), Send(answer + "<b/>"), ReadRequest(),
         Send("HTTP/1.1 500 Oops\r\nContent-Length: " + std::to_string(kFault11.size()) + "\r\n\r\n" +
              kFault11)});
    Proxy proxy;
    ASSERT_EQ(proxy.SetUrl(server.Url()), S_OK);
    proxy.SetTimeout(kTimeout);
    for (const char* expected : {"<a/>", "<b/>"}) {
        std::string body;
        ASSERT_EQ(proxy.GetPrinterElements("<r/>", &body), S_OK);
        EXPECT_EQ(body, expected);
    }
    std::string none;
    EXPECT_EQ(proxy.GetPrinterElements("<r/>", &none), E_FAIL);
    EXPECT_EQ(proxy.GetClientError(), SoapClientError::kSoapFault);
    EXPECT_EQ(proxy.GetFault().code, L"Client");
    EXPECT_EQ(proxy.GetPrinterElements(nullptr, &none), E_POINTER);
    EXPECT_EQ(proxy.GetClientError(), SoapClientError::kGenerate);
    EXPECT_EQ(proxy.GetFault().code, L"") << "the last exchange's fault must not stay";
    EXPECT_EQ(server.Connections(), 1u);
}

TEST_F(Transport, RefusesARedirectWithoutASecondRequest) {
    const ScriptedServer server(Answer(Http("307 Temporary Redirect", "", "Location: /wsd/print/\r\n")));
    EXPECT_EQ(Exchange(server.Url()).whole, E_FAIL);
    EXPECT_EQ(server.Connections(), 1u);
}

// Cookies would be kept on disk, for every later request of any process of the account.
TEST_F(Transport, KeepsNoCookies) {
    std::string cookies;
    for (int i = 0; i < 200; ++i)
        cookies += "Set-Cookie: c" + std::to_string(i) + "=" + std::string(200, 'v') +
                   "; expires=Fri, 01 Jan 2038 00:00:00 GMT\r\n";
    ScriptedServer server(Answer(Http("200 OK", kEnvelope, cookies)));
    for (int exchange = 0; exchange < 3; ++exchange) {
        const Ended outcome = Exchange(server.Url());
        EXPECT_EQ(outcome.whole, S_OK);
        EXPECT_LE(outcome.milliseconds, kSlack);
        EXPECT_EQ(server.LastRequest().find("Cookie"), std::string::npos);
    }
}

TEST_F(Transport, AnswerIsCleanedWithTheQuerysPrefixesOnItsRootAndInUtf8) {
    const std::wstring query = L"<EnumQueryElement xmlns:wprt='" +
                               std::wstring(test::kPrint.begin(), test::kPrint.end()) +
                               L"' xmlns:nprt='urn:v'/>";
    const std::string answer =
        "<?xml version='1.0' encoding='windows-1252'?>\r\n<!-- c -->" +
        test::Envelope("<q:R xmlns:q='" + test::kPrint +
                       "'><q:V xmlns:q='urn:v' q:k='1' xml:lang='de'>&amp;<![CDATA[<\xE4]]>&#x1F600;</q:V>"
                       "<q:ElementData Name='q:A'/></q:R>");
    std::string clean;
    ASSERT_EQ(CleanPrinterElements(answer, query.c_str(), &clean), S_OK);
    EXPECT_EQ(clean, "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"" + test::kSoap12 +
                         "\" xmlns:wprt=\"" + test::kPrint +
                         "\" xmlns:nprt=\"urn:v\"><wprt:R><nprt:V nprt:k=\"1\" xml:lang=\"de\">"
                         "&amp;&lt;\xC3\xA4\xF0\x9F\x98\x80</nprt:V><wprt:ElementData Name=\"wprt:A\"/>"
                         "</wprt:R></s:Envelope>");
}

TEST_F(Transport, RefusesBadArgumentsBeforeAnythingIsSent) {
    const ScriptedServer server(Answer(Http("200 OK", kEnvelope)));
    const std::wstring url = server.Url();
    ComPtr<IStream> response;
    const wchar_t query[] = L"<EnumQueryElement/>";
    EXPECT_EQ(GetPrinterElements(url.c_str(), query, nullptr), E_INVALIDARG);
    EXPECT_EQ(GetPrinterElements(nullptr, query, response.Receive()), E_INVALIDARG);
    EXPECT_EQ(GetPrinterElements(url.c_str(), nullptr, response.Receive()), E_INVALIDARG);
    EXPECT_EQ(GetPrinterElements(L"http://a b/", query, response.Receive()), E_INVALIDARG);
    EXPECT_EQ(GetPrinterElementsFromStream(url.c_str(), nullptr, response.Receive()), E_INVALIDARG);
    for (const wchar_t* bad : {L"", L"<Other/>", L"<EnumQueryElement>", L"text"})
        EXPECT_EQ(GetPrinterElements(url.c_str(), bad, response.Receive()), E_FAIL) << bad;
    EXPECT_EQ(server.Connections(), 0u);
    std::string clean;
    EXPECT_EQ(CleanPrinterElements(kEnvelope, query, nullptr), E_INVALIDARG);
    EXPECT_EQ(CleanPrinterElements(kEnvelope, nullptr, &clean), E_INVALIDARG);
    EXPECT_EQ(CleanPrinterElements(kEnvelope, L"<Other/>", &clean), E_FAIL);
}

TEST(TransportWithoutCom, FailsBeforeAnythingIsSent) {
    const ScriptedServer server(Answer(Http("200 OK", kEnvelope)));
    Proxy proxy;
    ASSERT_EQ(proxy.SetUrl(server.Url()), S_OK);
    std::string answer;
    EXPECT_EQ(proxy.GetPrinterElements("<r/>", &answer), CO_E_NOTINITIALIZED);
    EXPECT_EQ(proxy.GetClientError(), SoapClientError::kInitialize);
    EXPECT_EQ(server.Connections(), 0u);
}

}  // namespace
}  // namespace vlm
