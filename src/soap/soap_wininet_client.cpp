#include "soap/soap_wininet_client.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <utility>

#include "soap/read_stream_on_inet.h"
#include "util/bounded_call.h"
#include "util/outcome.h"
#include "util/streams.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm {

namespace {

constexpr wchar_t kAgent[] = L"VCSoapClient";
constexpr wchar_t kContentType[] = L"Content-Type: application/soap+xml\r\n";

// Redirects are not followed: WinINet would repeat a POST as a GET without its body, endlessly if the printer
// redirects in a circle, and to any host the printer names. Nor may a printer store anything in the spooler's
// account: no cached pages, and no cookies, which WinINet would write to disk and send with every later
// request.
constexpr DWORD kRequestFlags = INTERNET_FLAG_KEEP_CONNECTION | INTERNET_FLAG_NO_UI |
                                INTERNET_FLAG_NO_AUTO_REDIRECT | INTERNET_FLAG_NO_COOKIES |
                                INTERNET_FLAG_NO_CACHE_WRITE;
constexpr DWORD kIgnoreCertificate = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                                     SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;

constexpr DWORD kTimeoutWhenNoneIsSet = 30'000;
// Connecting and sending a request of some kilobytes have one time-out together, the head of the answer has
// another.
constexpr DWORD kSendTimeouts = 2;
constexpr DWORD kBodyTimeouts = 6;
constexpr DWORD kLongestTimeout = 600'000;

// The part of its time that a step reserves for closing the request when it gives up. As much again is
// reserved for its call to end.
DWORD ClosingTime(DWORD wholeTime) {
    return std::min<DWORD>(wholeTime / 16, 500);
}

constexpr int kStatusServerError = 500;

}  // namespace

HRESULT CVlSoapWininetClient::SetUrl(std::wstring_view url) {
    ServiceUrl parsed;
    if (!ParseServiceUrl(url, url_.path, &parsed)) {
        // What stands before an "@" may be a password.
        const size_t user = url.rfind(L'@');
        const std::wstring_view shown = user == std::wstring_view::npos ? url : url.substr(user + 1);
        reason_ = L"\"" + Printable(shown) + L"\" is not the address of a service";
        return E_INVALIDARG;
    }
    CloseAll();
    url_ = std::move(parsed);
    return S_OK;
}

void CVlSoapWininetClient::CleanupClient() {
    body_.clear();
    reason_.clear();
    CloseRequest();
    fault_ = {};
    clientError_ = SoapClientError::kSuccess;
}

// Not every WinINet closes a request at once: Wine's first reads the rest of the answer, for as long as the
// printer sends.
void CVlSoapWininetClient::CloseRequest() noexcept {
    if (!request_) return;
    // Closed in the reverse order.
    struct Closing {
        InternetHandle internet;
        InternetHandle connection;
        InternetHandle request;
    };
    GuardHresult([&] {
        const auto closing = std::make_shared<Closing>();
        closing->request = std::move(request_);
        const DWORD time = ClosingTime(EffectiveTimeout() * kSendTimeouts);
        const auto close = [closing] { closing->request.Reset(); };
        if (RunBounded(url_.host, close, time)) return S_OK;
        Trace(L"Error: host \"%ls:%u\": a request does not close\r\n", TraceName(url_.host.c_str()).c_str(),
              url_.port);
        // Closing the connection would close the request a second time, so both stay open with it.
        closing->connection = std::move(connection_);
        closing->internet = std::move(internet_);
        return S_OK;
    });
}

void CVlSoapWininetClient::CloseAll() noexcept {
    CloseRequest();
    // Still there only when memory ran out.
    request_.Reset();
    connection_.Reset();
    internet_.Reset();
}

HRESULT CVlSoapWininetClient::Fail(std::wstring reason) {
    reason_ = std::move(reason);
    return E_FAIL;
}

std::wstring CVlSoapWininetClient::Endpoint() const {
    return Printable(url_.host) + L":" + std::to_wstring(url_.port);
}

HRESULT CVlSoapWininetClient::SendRequest(std::wstring_view actionHeader) {
    begin_ = TraceClock::now();
    status_ = 0;
    const HRESULT hr = Exchange(actionHeader);
    if (FAILED(hr)) EndExchange(0);
    return hr;
}

HRESULT CVlSoapWininetClient::Exchange(std::wstring_view actionHeader) {
    if (!MayCall(url_.host))
        return Fail(L"earlier calls still hang, so no new call to " + Endpoint() + L" is made");
    HRESULT hr = connection_ ? S_OK : Connect();
    if (SUCCEEDED(hr)) hr = OpenRequest();
    if (SUCCEEDED(hr)) hr = Send(std::wstring(actionHeader) + kContentType);
    if (FAILED(hr)) return hr;

    hr = QueryStatus();
    if (FAILED(hr) || status_ != kStatusServerError) return hr;
    SoapFault fault;
    CSoapFaultParser parser(&fault);
    const bool readable = SUCCEEDED(ReadResponse(&parser));
    if (readable) fault_ = std::move(fault);
    clientError_ = readable ? SoapClientError::kSoapFault : SoapClientError::kParseFault;
    const wchar_t* meaning = readable ? SoapFaultMeaning(fault_.code) : L"no SOAP 1.1 fault in the answer";
    return Fail(Endpoint() + L" answered with status 500: " +
                (meaning != nullptr ? meaning : L"a fault with an unknown code"));
}

HRESULT CVlSoapWininetClient::GetClientReader(IStream** reader, std::shared_ptr<std::wstring> reason) {
    if (reader == nullptr) return E_POINTER;
    *reader = nullptr;
    if (!request_) return Fail(L"no request is open");
    // No read begins just before the request is closed: the platform may reuse the handle for another
    // request.
    const DWORD time = EffectiveTimeout() * kBodyTimeouts;
    const ULONGLONG deadline = GetTickCount64() + time - 3 * ClosingTime(time);
    *reader = NewReadStreamOnInet(request_.Get(), deadline, std::move(reason));
    return S_OK;
}

HRESULT CVlSoapWininetClient::ReadBody(std::string* body) {
    const HRESULT hr = ReadWholeBody(body);
    EndExchange(SUCCEEDED(hr) ? body->size() : 0);
    return hr;
}

void CVlSoapWininetClient::EndExchange(size_t bytes) {
    const auto begin = std::exchange(begin_, std::nullopt);
    if (begin) TraceExchangeEnd(url_.host.c_str(), url_.port, status_, bytes, *begin);
}

HRESULT CVlSoapWininetClient::ReadWholeBody(std::string* body) {
    struct Reading {
        ComPtr<IStream> reader;
        std::string bytes;
        HRESULT result = E_FAIL;
    };
    const auto why = std::make_shared<std::wstring>();
    const auto reading = std::make_shared<Reading>();
    HRESULT hr = GetClientReader(reading->reader.Receive(), why);
    if (FAILED(hr)) return hr;
    // The reader ends by itself at its deadline, unless a single read outlasts it.
    const bool ended = RunWithinTime(EffectiveTimeout() * kBodyTimeouts, [reading] {
        reading->result = ReadStream(reading->reader.Get(), kLongestBody, &reading->bytes);
    });
    hr = ended ? reading->result : E_FAIL;
    if (SUCCEEDED(hr) && reading->bytes.size() <= kLongestBody) {
        *body = std::move(reading->bytes);
        return hr;
    }
    std::wstring problem = ended ? *why : L"does not end";
    if (problem.empty()) problem = SUCCEEDED(hr) ? L"is too long" : DescribeHresult(hr);
    Fail(L"the answer of " + Endpoint() + L" " + problem);
    // The rest of such an answer is not waited for.
    CloseAll();
    return FAILED(hr) ? hr : E_FAIL;
}

bool CVlSoapWininetClient::RunWithinTime(DWORD time, std::function<void()> work) {
    const DWORD closing = ClosingTime(time);
    const auto cancel = [this] { CloseAll(); };
    return RunBounded(url_.host, std::move(work), time - 2 * closing, cancel, closing);
}

HRESULT CVlSoapWininetClient::InitializeReader() {
    if (reader_) return S_OK;
    const HRESULT hr = CreateSaxReader(reader_.Receive());
    if (FAILED(hr)) clientError_ = SoapClientError::kInitialize;
    return hr;
}

HRESULT CVlSoapWininetClient::Call(const std::function<HRESULT(std::string*)>& generate) {
    HRESULT hr = InitializeReader();
    if (FAILED(hr)) return hr;
    CleanupClient();
    hr = GuardHresult([&] { return generate(&body_); });
    if (FAILED(hr)) {
        clientError_ = hr == E_OUTOFMEMORY ? SoapClientError::kOutOfMemory : SoapClientError::kGenerate;
        return hr;
    }
    return SendRequest(L"SOAPAction: \"\"\r\n");
}

HRESULT CVlSoapWininetClient::ReadResponse(SaxHandler* handler) {
    std::string body;
    HRESULT hr = InitializeReader();
    if (SUCCEEDED(hr)) hr = ReadBody(&body);
    if (SUCCEEDED(hr)) {
        hr = ParseXml(reader_.Get(), body, handler);
        if (FAILED(hr)) reason_ = L"the answer of " + Endpoint() + L" is not a response of the service";
    }
    if (FAILED(hr)) clientError_ = SoapClientError::kParse;
    return hr;
}

HRESULT CVlSoapWininetClient::Connect() {
    internet_.Reset(InternetOpenW(kAgent, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
    if (internet_) {
        SetTimeouts(internet_.Get());
        connection_.Reset(InternetConnectW(internet_.Get(), url_.host.c_str(), url_.port, nullptr, nullptr,
                                           INTERNET_SERVICE_HTTP, INTERNET_FLAG_NO_UI, 0));
    }
    if (connection_) return S_OK;
    Fail(L"no connection to " + Endpoint() + L": " + FromUtf8(ErrorText(GetLastError())));
    CloseAll();
    clientError_ = SoapClientError::kConnect;
    return E_FAIL;
}

HRESULT CVlSoapWininetClient::OpenRequest() {
    const wchar_t* acceptTypes[] = {L"text/*", nullptr};
    const DWORD flags = kRequestFlags | (url_.secure ? INTERNET_FLAG_SECURE : 0);
    request_.Reset(HttpOpenRequestW(connection_.Get(), L"POST", url_.path.c_str(), L"HTTP/1.0", nullptr,
                                    acceptTypes, flags, 0));
    if (!request_) {
        clientError_ = SoapClientError::kSend;
        return Fail(L"no request to " + Endpoint() + L": " + FromUtf8(ErrorText(GetLastError())));
    }
    // Not every WinINet passes the session's time-outs on to its requests.
    SetTimeouts(request_.Get());
    if (url_.secure) {
        DWORD security = 0;
        DWORD size = sizeof security;
        InternetQueryOptionW(request_.Get(), INTERNET_OPTION_SECURITY_FLAGS, &security, &size);
        security |= kIgnoreCertificate;
        InternetSetOptionW(request_.Get(), INTERNET_OPTION_SECURITY_FLAGS, &security, sizeof security);
    }
    return S_OK;
}

HRESULT CVlSoapWininetClient::Send(const std::wstring& headers) {
    struct Result {
        BOOL sent = FALSE;
        DWORD error = ERROR_SUCCESS;
    };
    const auto result = std::make_shared<Result>();
    const auto send = [result, request = request_.Get(), headers, body = body_]() mutable {
        result->sent = HttpSendRequestW(request, headers.data(), static_cast<DWORD>(headers.size()),
                                        body.data(), static_cast<DWORD>(body.size()));
        result->error = GetLastError();
    };
    const bool ended = RunWithinTime(EffectiveTimeout() * kSendTimeouts, send);
    if (ended && result->sent) return S_OK;
    const DWORD error = ended ? result->error : static_cast<DWORD>(ERROR_INTERNET_TIMEOUT);
    return Fail(L"no answer from " + Endpoint() + L": " + FromUtf8(ErrorText(error)));
}

// An answer whose status cannot be read has status 0.
HRESULT CVlSoapWininetClient::QueryStatus() {
    wchar_t text[256];
    DWORD size = sizeof text;
    if (!HttpQueryInfoW(request_.Get(), HTTP_QUERY_STATUS_CODE, text, &size, nullptr)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return S_OK;
        Fail(Endpoint() + L" answered with an overlong status");
        return E_INVALIDARG;
    }
    status_ = std::max(0, static_cast<int>(std::wcstol(text, nullptr, 10)));
    // A connection that was closed before any byte looks like an answer with status 0, for example.
    return status_ > 0 ? S_OK : Fail(Endpoint() + L" did not answer in HTTP");
}

void CVlSoapWininetClient::SetTimeouts(HINTERNET handle) const {
    if (timeout_ == 0) return;
    constexpr DWORD kOptions[] = {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_RECEIVE_TIMEOUT,
                                  INTERNET_OPTION_SEND_TIMEOUT};
    for (const DWORD option : kOptions) {
        DWORD timeout = timeout_;
        InternetSetOptionW(handle, option, &timeout, sizeof timeout);
    }
}

DWORD CVlSoapWininetClient::EffectiveTimeout() const {
    return timeout_ == 0 ? kTimeoutWhenNoneIsSet : std::min(timeout_, kLongestTimeout);
}

}  // namespace vlm
