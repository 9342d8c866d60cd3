#include "soap/printer_elements.h"

#include <cwchar>
#include <string>

#include "soap/hresult.h"
#include "soap/namespaces.h"
#include "soap/prefix_normalizer.h"
#include "soap/printer_service.h"
#include "soap/query_document.h"
#include "soap/sax.h"
#include "soap/streams.h"
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
    explicit AnswerHandler(const PrinterElementsQuery& query) : normalizer_(query.namespaces) {}
    std::wstring Finish() const { return normalizer_.Finish(); }

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        if (normalizer_.Declare(prefix, uri)) return S_OK;
        Trace(L"WSD: the printer's answer has too many namespaces\r\n");
        return E_FAIL;
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
        normalizer_.StartElement(name, attributes);
        return S_OK;
    }
    HRESULT OnEnd(const XmlName&) override {
        normalizer_.EndElement();
        return S_OK;
    }
    HRESULT OnText(std::wstring_view text) override {
        normalizer_.Text(text);
        return S_OK;
    }

    PrefixNormalizer normalizer_;
    bool envelopeSeen_ = false;
};

HRESULT Fetch(const wchar_t* url, const PrinterElementsQuery& query, IStream** answer) {
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

HRESULT Clean(IStream* answer, const PrinterElementsQuery& query, IStream** response) {
    std::string document;
    ComPtr<ISAXXMLReader> reader;
    HRESULT hr = ReadWhole(answer, &document);
    if (SUCCEEDED(hr)) hr = CreateSaxReader(reader.Receive());
    if (FAILED(hr)) return hr;
    AnswerHandler handler(query);
    hr = ParseXml(reader.Get(), document, &handler);
    if (FAILED(hr)) {
        Trace(L"WSD: the printer's answer cannot be used, error 0x%08lX\r\n", static_cast<unsigned long>(hr));
        return hr;
    }
    return MakeStream("<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + ToUtf8(handler.Finish()), response);
}

HRESULT FetchAndClean(const wchar_t* url, const PrinterElementsQuery& query, IStream** response) {
    ComPtr<IStream> answer;
    const HRESULT hr = Fetch(url, query, answer.Receive());
    return FAILED(hr) ? hr : Clean(answer.Get(), query, response);
}

// What the public functions have in common: the out pointer is null unless `body` fills it, and nothing is
// thrown.
template <typename Body>
HRESULT Produce(IStream** out, bool argumentsGood, Body&& body) {
    if (out == nullptr) return E_INVALIDARG;
    *out = nullptr;
    return argumentsGood ? GuardHresult(body) : E_INVALIDARG;
}

}  // namespace

HRESULT GetPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** response) {
    return Produce(response, url != nullptr && queryText != nullptr, [&] {
        PrinterElementsQuery query;
        const HRESULT hr = ReadQuery(queryText, &query);
        return FAILED(hr) ? hr : FetchAndClean(url, query, response);
    });
}

HRESULT GetPrinterElementsFromStream(const wchar_t* url, IStream* queryStream, IStream** response) {
    return Produce(response, url != nullptr && queryStream != nullptr, [&] {
        PrinterElementsQuery query;
        const HRESULT hr = ReadQuery(queryStream, &query);
        return FAILED(hr) ? hr : FetchAndClean(url, query, response);
    });
}

HRESULT FetchPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** answer) {
    return Produce(answer, url != nullptr && queryText != nullptr, [&] {
        PrinterElementsQuery query;
        const HRESULT hr = ReadQuery(queryText, &query);
        return FAILED(hr) ? hr : Fetch(url, query, answer);
    });
}

HRESULT CleanPrinterElements(IStream* answer, const wchar_t* queryText, IStream** response) {
    return Produce(response, answer != nullptr && queryText != nullptr, [&] {
        PrinterElementsQuery query;
        const HRESULT hr = ReadQuery(queryText, &query);
        return FAILED(hr) ? hr : Clean(answer, query, response);
    });
}

}  // namespace vlm
