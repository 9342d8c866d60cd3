#include "util/xml_namespaces.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "util/sax.h"
#include "util/xml_bounds.h"

namespace vlm {

namespace {

class Collector : public SaxHandler {
 public:
    explicit Collector(std::map<size_t, NamespaceDeclarations>* byElement) : byElement_(*byElement) {}

 private:
    HRESULT OnPrefix(std::wstring_view prefix, std::wstring_view uri) override {
        byElement_[element_].push_back({std::wstring(prefix), std::wstring(uri)});
        return S_OK;
    }
    HRESULT OnStart(const XmlName&, const XmlAttributes&) override {
        ++element_;
        return S_OK;
    }
    HRESULT OnEnd(const XmlName&) override { return S_OK; }

    std::map<size_t, NamespaceDeclarations>& byElement_;
    size_t element_ = 0;  // the one that starts next
};

}  // namespace

HRESULT DeclaredNamespaces::Read(std::string_view document) {
    byElement_.clear();
    std::string ready;
    // The limits were the caller's to keep; what matters here is the line ends.
    const XmlLimits none{SIZE_MAX, SIZE_MAX, SIZE_MAX, SIZE_MAX, SIZE_MAX};
    const bool madeReady = CheckXmlBounds(document, none, &ready) == XmlRefusal::kNone;
    Collector collector(&byElement_);
    ComPtr<ISAXXMLReader> reader;
    const HRESULT hr = CreateSaxReader(reader.Receive());
    return FAILED(hr)
               ? hr
               : ParseReadyXml(reader.Get(), madeReady ? std::string_view(ready) : document, &collector);
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
