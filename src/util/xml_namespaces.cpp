#include "util/xml_namespaces.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "util/sax.h"
#include "util/xml_bounds.h"

namespace vlm {

namespace {

constexpr std::wstring_view kRawAmpersand = L"&#38;";

class Collector : public SaxHandler {
 public:
    Collector(std::map<size_t, NamespaceDeclarations>* byElement, std::string_view document)
        : byElement_(*byElement), rawAmpersands_(document.find(";#38;") != std::string_view::npos) {}

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        std::wstring text(uri);
        for (size_t at = text.find(kRawAmpersand); at != std::wstring::npos && !rawAmpersands_;
             at = text.find(kRawAmpersand, at + 1))
            text.erase(at + 1, kRawAmpersand.size() - 1);
        byElement_[element_].push_back({std::wstring(prefix), std::move(text)});
        return S_OK;
    }
    HRESULT OnStart(const XmlName&, const XmlAttributes&) override {
        ++element_;
        return S_OK;
    }
    HRESULT OnEnd(const XmlName&) override { return S_OK; }

    std::map<size_t, NamespaceDeclarations>& byElement_;
    // Wine's reader reports an ampersand in a namespace as a reference. In a document that does not spell
    // that text out, it can be nothing else.
    const bool rawAmpersands_;
    size_t element_ = 0;  // the one that starts next
};

}  // namespace

HRESULT DeclaredNamespaces::Read(std::string_view document) {
    byElement_.clear();
    Collector collector(&byElement_, document);
    std::string ready;
    // The caller has checked the limits; only the line ends matter here.
    const XmlLimits none{SIZE_MAX, SIZE_MAX, SIZE_MAX, SIZE_MAX, SIZE_MAX};
    if (CheckXmlBounds(document, none, &ready) == XmlRefusal::kNone) document = ready;
    ComPtr<ISAXXMLReader> reader;
    const HRESULT hr = CreateSaxReader(reader.Receive());
    return FAILED(hr) ? hr : ParseReadyXml(reader.Get(), document, &collector);
}

NamespaceDeclarations DeclaredNamespaces::Of(size_t element) const {
    const auto found = byElement_.find(element);
    return found != byElement_.end() ? found->second : NamespaceDeclarations();
}

const NamespaceDeclarations* DeclaredNamespaces::OfFirstWith(std::wstring_view uri) const {
    for (const auto& [element, declarations] : byElement_)
        if (std::any_of(declarations.begin(), declarations.end(),
                        [&](const NamespaceDeclaration& declaration) { return declaration.uri == uri; }))
            return &declarations;
    return nullptr;
}

}  // namespace vlm
