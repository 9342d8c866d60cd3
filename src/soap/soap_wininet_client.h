// One SOAP exchange at a time with an HTTP endpoint on a printer, over WinINet.
//
// The request goes out as HTTP/1.0 POST without a proxy, without user interface, without credentials;
// printers sign their own certificates, so certificate problems never stop a request. Nothing is retried.
//
// Results are HRESULTs; what went wrong beyond that is in GetClientError() and Reason(). An HTTP status
// other than 500 is a successful exchange here, whatever the body; the caller parses it and finds out. No
// call lasts longer than
//   SendRequest: twice the time-out for the request and the head of the answer, 6 × the time-out for a
//   fault's body;
//   ReadBody:    6 × the time-out, and kLongestBody;
//   CleanupClient, SetUrl, CloseAll, destruction: an eighth of the time-out.
// With time-out 0 WinINet keeps its defaults, and 30 seconds take the time-out's place in these bounds. When
// a call's time is up its handles are closed, which is how WinINet cancels. A call that still does not end is
// abandoned (bounded_call.h); after too many of those SendRequest fails at once.
//
// For one thread, which has COM initialised; not shared. Other threads use WinINet's handles only during a
// call, and only this one closes them.
#pragma once

#include <windows.h>
// windows.h first.
#include <wininet.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "soap/service_url.h"
#include "soap/soap_fault.h"
#include "util/com.h"
#include "util/handles.h"
#include "util/trace_lines.h"
#include "util/xml_bounds.h"

namespace vlm {

enum class SoapClientError {
    kSuccess = 0,
    kInitialize = 1,   // no SAX reader
    kOutOfMemory = 2,  // no memory for the request
    kGenerate = 3,     // the request cannot be written
    kConnect = 4,      // no Internet handle or connection
    kSend = 5,         // no HTTP request handle
    kSoapFault = 7,    // HTTP status 500 with a fault that could be read
    kParseFault = 8,   // HTTP status 500 without one
    kParse = 10,       // a successful answer that could not be read
};

struct InternetHandleTraits : NullTraits<HINTERNET> {
    static void Close(Type handle) { InternetCloseHandle(handle); }
};
using InternetHandle = Unique<InternetHandleTraits>;

// In bytes, of an answer. A longer one would not be let through to a parser; the longest real ones have some
// hundred kilobytes.
inline constexpr size_t kLongestBody = kPrinterAnswerLimits.bytes;

class CVlSoapWininetClient {
 public:
    explicit CVlSoapWininetClient(ServiceUrl endpoint) : url_(std::move(endpoint)) {}
    ~CVlSoapWininetClient() { CloseAll(); }
    CVlSoapWininetClient(const CVlSoapWininetClient&) = delete;
    CVlSoapWininetClient& operator=(const CVlSoapWininetClient&) = delete;

    // Replaces the endpoint and closes the connection to the old one. ParseServiceUrl() fills in what `url`
    // leaves out, with the current path as the default. E_INVALIDARG for a URL that cannot be used;
    // the endpoint then stays.
    HRESULT SetUrl(std::wstring_view url);
    // In milliseconds.
    void SetTimeout(DWORD timeout) { timeout_ = timeout; }

    // Prepares for the next exchange; the connection stays open.
    void CleanupClient();
    void CloseAll() noexcept;
    // `actionHeader` is a whole header line with its CR LF. S_OK once the head of an answer has come, with a
    // status other than 500.
    HRESULT SendRequest(std::wstring_view actionHeader);
    // The body of the answer, readable once, until CleanupClient() or CloseAll(). `reason`, if not null,
    // receives that of a failed read.
    HRESULT GetClientReader(IStream** reader, std::shared_ptr<std::wstring> reason = nullptr);
    // The whole body.
    HRESULT ReadBody(std::string* body);

    SoapClientError GetClientError() const { return clientError_; }
    const SoapFault& GetFault() const { return fault_; }
    // Why the last call failed, in words; names the endpoint by host and port.
    const std::wstring& Reason() const { return reason_; }
    // The HTTP status of the last answer; 0 without one.
    int Status() const { return status_; }

 protected:
    // Begins an exchange: sends the body that `generate` appends, with an empty action. Sets the client error
    // when there is no reader for the answer, or no body.
    HRESULT Call(const std::function<HRESULT(std::string*)>& generate);
    // Parses the body of the answer. Sets the client error on failure.
    HRESULT ReadResponse(SaxHandler* handler);

 private:
    HRESULT Fail(std::wstring reason);
    // "host:port", printable.
    std::wstring Endpoint() const;
    // The reader for answers, created on first use.
    HRESULT InitializeReader();
    HRESULT Exchange(std::wstring_view actionHeader);
    HRESULT ReadWholeBody(std::string* body);
    // Traces how the exchange went, once.
    void EndExchange(size_t bytes);
    HRESULT Connect();
    HRESULT OpenRequest();
    HRESULT Send(const std::wstring& headers);
    HRESULT QueryStatus();
    void SetTimeouts(HINTERNET handle) const;
    // Runs a call on the request. False when it did not end in time; all handles are then closed.
    bool RunWithinTime(DWORD time, std::function<void()> work);
    void CloseRequest() noexcept;
    DWORD EffectiveTimeout() const;

    ServiceUrl url_;
    DWORD timeout_ = 0;
    InternetHandle internet_;
    InternetHandle connection_;
    InternetHandle request_;
    std::string body_;
    std::optional<TraceClock::time_point> begin_;  // of the exchange whose end has not been traced yet
    int status_ = 0;
    std::wstring reason_;
    ComPtr<ISAXXMLReader> reader_;
    SoapFault fault_;
    SoapClientError clientError_ = SoapClientError::kSuccess;
};

}  // namespace vlm
