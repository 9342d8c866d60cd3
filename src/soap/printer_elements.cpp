#include "soap/printer_elements.h"

#include <cwchar>
#include <string>

#include "soap/namespaces.h"
#include "soap/prefix_normalizer.h"
#include "soap/printer_service.h"
#include "soap/query_document.h"
#include "soap/streams.h"
#include "util/hresult.h"
#include "util/sax.h"
#include "util/vlutil.h"

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
        if (!envelopeSeen_ && (name.uri != ns::kSoap12 || name.local != L"Envelope")) {
            Trace(L"WSD: the printer's answer is no SOAP 1.2 envelope but \"%ls\"\r\n",
                  Printable(name.local, 64).c_str());
            return E_FAIL;
        }
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
    static HRESULT TooManyNamespaces() {
        Trace(L"WSD: the printer's answer has too many namespaces\r\n");
        return E_FAIL;
    }
    HRESULT WithinBounds() const {
        if (!normalizer_.TooLong()) return S_OK;
        Trace(L"WSD: the printer's answer is too long with one prefix per namespace\r\n");
        return E_FAIL;
    }

    PrefixNormalizer normalizer_;
    bool envelopeSeen_ = false;
};

HRESULT Fetch(const wchar_t* url, const PrinterElementsQuery& query, std::string* answer) {
    PrinterServiceProxy proxy;
    HRESULT hr = proxy.SetUrl(url);
    std::wstring messageId;
    std::wstring from;
    if (SUCCEEDED(hr)) hr = NewUuidName(&messageId);
    if (SUCCEEDED(hr)) hr = NewUuidName(&from);
    if (FAILED(hr)) return hr;
    const std::string request = BuildPrinterElementsRequest(query, url, messageId, from);
    proxy.SetTimeout(kTimeout);
    return proxy.GetPrinterElements(request.c_str(), answer);
}

HRESULT Clean(std::string_view answer, const std::vector<NamespaceDeclaration>& prefixes,
              std::string* document) {
    ComPtr<ISAXXMLReader> reader;
    HRESULT hr = CreateSaxReader(reader.Receive());
    if (FAILED(hr)) return hr;
    AnswerHandler handler(prefixes);
    hr = ParseXml(reader.Get(), answer, &handler);
    if (FAILED(hr)) {
        Trace(L"WSD: the printer's answer cannot be used, error 0x%08lX\r\n", static_cast<unsigned long>(hr));
        return hr;
    }
    *document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + ToUtf8(handler.Finish());
    return S_OK;
}

// What the public functions have in common: `body` runs with the query that `queryText` or `queryStream`
// holds, and nothing is thrown.
template <typename Query, typename Body>
HRESULT WithQuery(Query queryDocument, bool argumentsGood, Body&& body) {
    if (queryDocument == nullptr || !argumentsGood) return E_INVALIDARG;
    return GuardHresult([&] {
        PrinterElementsQuery query;
        const HRESULT hr = ReadQuery(queryDocument, &query);
        return FAILED(hr) ? hr : body(query);
    });
}

template <typename Query>
HRESULT GetAsStream(const wchar_t* url, Query queryDocument, IStream** response) {
    if (response != nullptr) *response = nullptr;
    return WithQuery(queryDocument, url != nullptr && response != nullptr,
                     [&](const PrinterElementsQuery& query) {
                         std::string answer;
                         std::string document;
                         HRESULT hr = Fetch(url, query, &answer);
                         if (SUCCEEDED(hr)) hr = Clean(answer, query.namespaces, &document);
                         return FAILED(hr) ? hr : MakeStream(document, response);
                     });
}

}  // namespace

HRESULT FetchPrinterElements(const wchar_t* url, const wchar_t* queryText, std::string* answer) {
    return WithQuery(queryText, url != nullptr && answer != nullptr,
                     [&](const PrinterElementsQuery& query) { return Fetch(url, query, answer); });
}

HRESULT CleanPrinterElements(std::string_view answer, const wchar_t* queryText, std::string* document) {
    return WithQuery(queryText, document != nullptr, [&](const PrinterElementsQuery& query) {
        return Clean(answer, query.namespaces, document);
    });
}

HRESULT CleanPrinterElements(std::string_view answer, const std::vector<NamespaceDeclaration>& prefixes,
                             std::string* document) {
    if (document == nullptr) return E_INVALIDARG;
    return GuardHresult([&] { return Clean(answer, prefixes, document); });
}

HRESULT GetPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** response) {
    return GetAsStream(url, queryText, response);
}

HRESULT GetPrinterElementsFromStream(const wchar_t* url, IStream* queryStream, IStream** response) {
    return GetAsStream(url, queryStream, response);
}

}  // namespace vlm
