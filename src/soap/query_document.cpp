#include "soap/query_document.h"

#include <string_view>

#include "soap/streams.h"
#include "util/sax.h"
#include "util/xml_names.h"

namespace vlm {

namespace {

class QueryHandler : public SaxHandler {
 public:
    explicit QueryHandler(PrinterElementsQuery* query) : query_(query) {}

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        if (depth_ == 0 && !prefix.empty())
            query_->namespaces.push_back({std::wstring(prefix), std::wstring(uri)});
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
        if (depth_ == 1 && inName_) query_->names.emplace_back(TrimXmlSpace(text_));
        return S_OK;
    }

    PrinterElementsQuery* query_;
    size_t depth_ = 0;
    bool inName_ = false;
    std::wstring text_;
};

HRESULT ReadBytes(std::string_view document, PrinterElementsQuery* query) {
    *query = {};
    ComPtr<ISAXXMLReader> reader;
    HRESULT hr = CreateSaxReader(reader.Receive());
    if (FAILED(hr)) return hr;
    QueryHandler handler(query);
    return ParseXml(reader.Get(), document, &handler);
}

}  // namespace

HRESULT ReadQuery(const wchar_t* text, PrinterElementsQuery* query) {
    return ReadBytes(DocumentToUtf8(text), query);
}

HRESULT ReadQuery(IStream* stream, PrinterElementsQuery* query) {
    std::string document;
    const HRESULT hr = ReadWhole(stream, &document);
    return FAILED(hr) ? hr : ReadBytes(document, query);
}

}  // namespace vlm
