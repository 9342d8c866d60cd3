#include "soap/printer_elements.h"

#include <cwchar>
#include <string>

#include "soap/prefix_normalizer.h"
#include "soap/printer_elements_request.h"
#include "soap/printer_service.h"
#include "util/namespaces.h"
#include "util/outcome.h"
#include "util/sax.h"
#include "util/streams.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/xml_bounds.h"

namespace vlm {

namespace {

constexpr DWORD kTimeout = 5000;

std::wstring NewUuidName() {
    GUID id;
    const HRESULT hr = CoCreateGuid(&id);
    if (FAILED(hr)) throw _com_error(hr);
    wchar_t text[64];
    std::swprintf(text, std::size(text), L"urn:uuid:%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2],
                  id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return text;
}

class QueryHandler : public SaxHandler {
 public:
    explicit QueryHandler(PrinterElementsQuery* query) : query_(*query) {}

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        if (depth_ == 0 && !prefix.empty())
            query_.namespaces.push_back({std::wstring(prefix), std::wstring(uri)});
        return S_OK;
    }
    HRESULT OnStart(const XmlName& name, const XmlAttributes&) override {
        if (depth_ == 0 && name.local != L"EnumQueryElement") return E_FAIL;
        if (depth_ == 1) {
            inName_ = name.local == L"Name";
            text_.clear();
        }
        ++depth_;
        return S_OK;
    }
    HRESULT OnText(std::wstring_view text) override {
        text_ += text;
        return S_OK;
    }
    HRESULT OnEnd(const XmlName&) override {
        --depth_;
        if (depth_ == 1 && inName_) query_.names.emplace_back(TrimXmlSpace(text_));
        return S_OK;
    }

    PrinterElementsQuery& query_;
    size_t depth_ = 0;
    bool inName_ = false;
    std::wstring text_;
};

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
            return Refuse(L"is not a SOAP 1.2 envelope but \"" + Printable(name.local, 64) + L"\"");
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

Outcome ReadQuery(std::string_view document, PrinterElementsQuery* query) {
    ComPtr<ISAXXMLReader> reader;
    HRESULT hr = CreateSaxReader(reader.Receive());
    if (FAILED(hr)) return {hr, L"no SAX reader"};
    QueryHandler handler(query);
    hr = ParseXml(reader.Get(), document, &handler);
    if (FAILED(hr)) return {hr, L"the query for printer elements is not an EnumQueryElement document"};
    return {};
}

Outcome Fetch(const wchar_t* url, const PrinterElementsQuery& query, std::string* answer, int* status) {
    PrinterService::CPrinterServiceT<CVlSoapWininetClient> proxy;
    HRESULT hr = proxy.SetUrl(url);
    proxy.SetTimeout(kTimeout);
    if (SUCCEEDED(hr)) {
        const auto request = BuildPrinterElementsRequest(query, url, NewUuidName(), NewUuidName());
        hr = proxy.GetPrinterElements(request.c_str(), answer);
    }
    if (status != nullptr) *status = proxy.Status();
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
    reason += handler.Reason().empty() ? L"is not well-formed XML" : handler.Reason();
    if (status < 200 || status > 299) reason = L"HTTP status " + std::to_wstring(status) + L"; " + reason;
    return {hr, std::move(reason)};
}

Outcome ArgumentMissing() {
    return {E_INVALIDARG, L"an argument is missing"};
}

Outcome GetAsStream(const wchar_t* url, std::string_view queryDocument, IStream** response) {
    PrinterElementsQuery query;
    std::string answer;
    std::string document;
    int status = 0;
    Outcome outcome = ReadQuery(queryDocument, &query);
    if (SUCCEEDED(outcome)) outcome = Fetch(url, query, &answer, &status);
    if (SUCCEEDED(outcome)) outcome = Clean(answer, query.namespaces, &document, status);
    if (SUCCEEDED(outcome)) outcome.code = MakeStream(document, response);
    return outcome;
}

HRESULT Traced(const Outcome& outcome) {
    if (FAILED(outcome)) Trace(L"Error: %ls\r\n", outcome.Reason());
    return outcome;
}

}  // namespace

Outcome FetchPrinterElements(const wchar_t* url, const wchar_t* queryText, std::string* answer, int* status) {
    return GuardHresult([&]() -> Outcome {
        if (url == nullptr || queryText == nullptr || answer == nullptr) return ArgumentMissing();
        PrinterElementsQuery query;
        Outcome outcome = ReadQuery(DocumentToUtf8(queryText), &query);
        if (SUCCEEDED(outcome)) outcome = Fetch(url, query, answer, status);
        return outcome;
    });
}

Outcome CleanPrinterElements(std::string_view answer, const wchar_t* queryText, std::string* document,
                             int status) {
    return GuardHresult([&]() -> Outcome {
        if (queryText == nullptr || document == nullptr) return ArgumentMissing();
        PrinterElementsQuery query;
        Outcome outcome = ReadQuery(DocumentToUtf8(queryText), &query);
        if (SUCCEEDED(outcome)) outcome = Clean(answer, query.namespaces, document, status);
        return outcome;
    });
}

Outcome CleanPrinterElements(std::string_view answer, const std::vector<NamespaceDeclaration>& prefixes,
                             std::string* document, int status) {
    return GuardHresult([&]() -> Outcome {
        return document != nullptr ? Clean(answer, prefixes, document, status) : ArgumentMissing();
    });
}

HRESULT GetPrinterElements(const wchar_t* url, const wchar_t* queryText, IStream** response) {
    return Traced(GuardHresult([&]() -> Outcome {
        if (response != nullptr) *response = nullptr;
        if (url == nullptr || queryText == nullptr || response == nullptr) return ArgumentMissing();
        return GetAsStream(url, DocumentToUtf8(queryText), response);
    }));
}

HRESULT GetPrinterElementsFromStream(const wchar_t* url, IStream* queryStream, IStream** response) {
    return Traced(GuardHresult([&]() -> Outcome {
        if (response != nullptr) *response = nullptr;
        if (url == nullptr || queryStream == nullptr || response == nullptr) return ArgumentMissing();
        std::string query;
        HRESULT hr = queryStream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
        if (SUCCEEDED(hr)) hr = ReadStream(queryStream, kPrinterAnswerLimits.bytes, &query);
        if (FAILED(hr)) return {hr, L"the query for printer elements cannot be read"};
        return GetAsStream(url, query, response);
    }));
}

}  // namespace vlm
