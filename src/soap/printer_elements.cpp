#include "soap/printer_elements.h"

#include <cwchar>
#include <string>

#include "soap/prefix_normalizer.h"
#include "soap/printer_service.h"
#include "soap/query_document.h"
#include "soap/streams.h"
#include "util/namespaces.h"
#include "util/sax.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm {

namespace {

using PrinterServiceProxy = PrinterService::CPrinterServiceT<CVlSoapWininetClient>;

constexpr DWORD kTimeout = 5000;

HRESULT NewUuidName(std::wstring* name) {
    GUID id;
    const HRESULT hr = CoCreateGuid(&id);
    if (FAILED(hr)) return hr;
    wchar_t text[256];
    const int length =
        std::swprintf(text, std::size(text), L"urn:uuid:%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                      static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1],
                      id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    if (length < 0) return E_FAIL;
    name->assign(text, static_cast<size_t>(length));
    return S_OK;
}

// Passes an answer's events to the normalizer, provided it is a SOAP 1.2 envelope.
class AnswerHandler : public SaxHandler {
 public:
    explicit AnswerHandler(const std::vector<NamespaceDeclaration>& prefixes) : normalizer_(prefixes) {}
    std::wstring Finish() const { return normalizer_.Finish(); }

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        return normalizer_.Declare(prefix, uri) ? S_OK : TooManyNamespaces();
    }
    HRESULT OnPrefixEnd() override {
        normalizer_.EndDeclaration();
        return S_OK;
    }
    HRESULT OnStart(const XmlName& name, const XmlAttributes& attributes) override {
        if (!envelopeSeen_ && (name.uri != ns::kSoap12 || name.local != L"Envelope"))
            return Refuse(L"is no SOAP 1.2 envelope but \"" + Printable(name.local, 64) + L"\"");
        envelopeSeen_ = true;
        return normalizer_.StartElement(name, attributes) ? WithinBounds() : TooManyNamespaces();
    }
    HRESULT OnEnd(const XmlName&) override {
        normalizer_.EndElement();
        return S_OK;
    }
    HRESULT OnText(std::wstring_view text) override {
        normalizer_.Text(text);
        return WithinBounds();
    }
    HRESULT TooManyNamespaces() { return Refuse(L"has too many namespaces"); }
    HRESULT WithinBounds() {
        return normalizer_.TooLong() ? Refuse(L"is too long with one prefix per namespace") : S_OK;
    }

    PrefixNormalizer normalizer_;
    bool envelopeSeen_ = false;
};

// Runs a step that returns an Outcome; what it throws becomes one.
template <typename Step>
Outcome Guarded(Step&& step) noexcept {
    try {
        return step();
    } catch (...) {
        return CaughtOutcome();
    }
}

Outcome Fetch(const wchar_t* url, const PrinterElementsQuery& query, std::string* answer, int* status) {
    PrinterServiceProxy proxy;
    HRESULT hr = proxy.SetUrl(url);
    std::wstring messageId;
    std::wstring from;
    if (SUCCEEDED(hr)) hr = NewUuidName(&messageId);
    if (SUCCEEDED(hr)) hr = NewUuidName(&from);
    if (SUCCEEDED(hr)) {
        const std::string request = BuildPrinterElementsRequest(query, url, messageId, from);
        proxy.SetTimeout(kTimeout);
        hr = proxy.GetPrinterElements(request.c_str(), answer);
    }
    *status = proxy.Status();
    return {hr, proxy.Reason()};
}

Outcome Clean(std::string_view answer, const std::vector<NamespaceDeclaration>& prefixes,
              std::string* document, int status) {
    ComPtr<ISAXXMLReader> reader;
    HRESULT hr = CreateSaxReader(reader.Receive());
    if (FAILED(hr)) return {hr, L"no SAX reader"};
    AnswerHandler handler(prefixes);
    hr = ParseXml(reader.Get(), answer, &handler);
    if (SUCCEEDED(hr)) {
        *document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + ToUtf8(handler.Finish());
        return {};
    }
    std::wstring reason = L"the printer's answer ";
    reason += handler.Reason().empty() ? L"is no well-formed XML" : handler.Reason();
    const bool isSuccess = status >= 200 && status < 300;
    if (!isSuccess) reason = L"HTTP status " + std::to_wstring(status) + L"; " + reason;
    return {hr, std::move(reason)};
}

// Runs `body` with the query that `queryText` or `queryStream` holds.
template <typename Query, typename Body>
Outcome WithQuery(Query queryDocument, bool argumentsGood, Body&& body) {
    if (queryDocument == nullptr || !argumentsGood) return {E_INVALIDARG, {}};
    return Guarded([&]() -> Outcome {
        PrinterElementsQuery query;
        const HRESULT hr = ReadQuery(queryDocument, &query);
        if (FAILED(hr)) return {hr, L"the query for printer elements is no EnumQueryElement document"};
        return body(query);
    });
}

template <typename Query>
HRESULT GetAsStream(const wchar_t* url, Query queryDocument, IStream** response) {
    if (response != nullptr) *response = nullptr;
    const Outcome outcome =
        WithQuery(queryDocument, url != nullptr && response != nullptr,
                  [&](const PrinterElementsQuery& query) -> Outcome {
                      std::string answer;
                      std::string document;
                      int status = 0;
                      Outcome step = Fetch(url, query, &answer, &status);
                      if (SUCCEEDED(step)) step = Clean(answer, query.namespaces, &document, status);
                      return FAILED(step) ? step : Outcome{MakeStream(document, response), {}};
                  });
    if (FAILED(outcome)) Trace(L"Error: %ls\r\n", outcome.Reason());
    return outcome;
}

}  // namespace

Outcome FetchPrinterElements(const wchar_t* url, const wchar_t* queryText, std::string* answer, int* status) {
    int ignored = 0;
    return WithQuery(queryText, url != nullptr && answer != nullptr, [&](const PrinterElementsQuery& query) {
        return Fetch(url, query, answer, status != nullptr ? status : &ignored);
    });
}

Outcome CleanPrinterElements(std::string_view answer, const wchar_t* queryText, std::string* document,
                             int status) {
    return WithQuery(queryText, document != nullptr, [&](const PrinterElementsQuery& query) {
        return Clean(answer, query.namespaces, document, status);
    });
}

Outcome CleanPrinterElements(std::string_view answer, const std::vector<NamespaceDeclaration>& prefixes,
                             std::string* document, int status) {
    if (document == nullptr) return {E_INVALIDARG, {}};
    return Guarded([&] { return Clean(answer, prefixes, document, status); });
}

HRESULT GetPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** response) {
    return GetAsStream(url, queryText, response);
}

HRESULT GetPrinterElementsFromStream(const wchar_t* url, IStream* queryStream, IStream** response) {
    return GetAsStream(url, queryStream, response);
}

}  // namespace vlm
