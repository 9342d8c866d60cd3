#include "soap/query_document.h"

#include <string_view>

#include "util/com.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

HRESULT CreateDocument(ComPtr<IXMLDOMDocument2>* document) {
    HRESULT hr = CoCreateInstance(msxml::kDomDocument30, nullptr, CLSCTX_ALL, msxml::kIXMLDOMDocument2,
                                  document->ReceiveVoid());
    if (SUCCEEDED(hr)) hr = (*document)->put_async(VARIANT_FALSE);
    if (SUCCEEDED(hr)) hr = (*document)->put_validateOnParse(VARIANT_FALSE);
    if (SUCCEEDED(hr)) hr = (*document)->put_resolveExternals(VARIANT_FALSE);
    return hr;
}

std::wstring_view View(const _bstr_t& text) {
    return text.length() == 0 ? std::wstring_view() : std::wstring_view(text, text.length());
}

// The declarations on `root`. By position: walking the map or asking it by name does not show them
// everywhere, and an entry that cannot be had (the default declaration, which no prefix refers to) is no
// reason to stop.
HRESULT ReadNamespaces(IXMLDOMNode* root, std::vector<NamespacePrefix>* namespaces) {
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    HRESULT hr = root->get_attributes(attributes.Receive());
    if (hr != S_OK || !attributes) return FAILED(hr) ? hr : E_FAIL;
    long count = 0;
    hr = attributes->get_length(&count);
    if (FAILED(hr)) return hr;
    for (long i = 0; i < count; ++i) {
        ComPtr<IXMLDOMNode> attribute;
        if (attributes->get_item(i, attribute.Receive()) != S_OK || !attribute) continue;
        _bstr_t name;
        _variant_t uri;
        if (attribute->get_nodeName(name.GetAddress()) != S_OK || attribute->get_nodeValue(&uri) != S_OK)
            continue;
        constexpr std::wstring_view kDeclaration = L"xmlns:";
        const std::wstring_view prefix = View(name);
        if (!prefix.starts_with(kDeclaration) || uri.vt != VT_BSTR) continue;
        namespaces->push_back({std::wstring(prefix.substr(kDeclaration.size())),
                               std::wstring(uri.bstrVal, SysStringLen(uri.bstrVal))});
    }
    return S_OK;
}

HRESULT BaseName(IXMLDOMNode* node, std::wstring* name) {
    _bstr_t text;
    const HRESULT hr = node->get_baseName(text.GetAddress());
    *name = View(text);
    return FAILED(hr) ? hr : S_OK;
}

HRESULT ReadNames(IXMLDOMNode* root, std::vector<std::wstring>* names) {
    ComPtr<IXMLDOMNode> child;
    HRESULT hr = root->get_firstChild(child.Receive());
    while (hr == S_OK && child) {
        std::wstring name;
        hr = BaseName(child.Get(), &name);
        if (SUCCEEDED(hr) && name == L"Name") {
            _bstr_t text;
            hr = child->get_text(text.GetAddress());
            if (SUCCEEDED(hr)) names->emplace_back(View(text));
        }
        if (FAILED(hr)) return hr;
        ComPtr<IXMLDOMNode> next;
        hr = child->get_nextSibling(next.Receive());
        child = next;
    }
    return FAILED(hr) ? hr : S_OK;
}

// `loaded` and `success` are what the load of `document` returned: only both together say that there is a
// document.
HRESULT ReadDocument(IXMLDOMDocument2* document, HRESULT loaded, VARIANT_BOOL success,
                     PrinterElementsQuery* query) {
    ComPtr<IXMLDOMElement> root;
    std::wstring name;
    HRESULT hr = loaded == S_OK && success == VARIANT_TRUE ? S_OK : FAILED(loaded) ? loaded : E_FAIL;
    if (SUCCEEDED(hr)) hr = document->get_documentElement(root.Receive());
    if (SUCCEEDED(hr)) hr = root ? BaseName(root.Get(), &name) : E_FAIL;
    if (SUCCEEDED(hr) && name != L"EnumQueryElement") hr = E_FAIL;
    if (FAILED(hr)) {
        Trace(L"WSD: the query for printer elements cannot be read (root \"%ls\")\r\n",
              Printable(name).c_str());
        return hr;
    }
    *query = {};
    hr = ReadNamespaces(root.Get(), &query->namespaces);
    return FAILED(hr) ? hr : ReadNames(root.Get(), &query->names);
}

}  // namespace

HRESULT ReadQuery(const wchar_t* text, PrinterElementsQuery* query) {
    ComPtr<IXMLDOMDocument2> document;
    const HRESULT hr = CreateDocument(&document);
    if (FAILED(hr)) return hr;
    VARIANT_BOOL success = VARIANT_FALSE;
    const HRESULT loaded = document->loadXML(_bstr_t(text), &success);
    return ReadDocument(document.Get(), loaded, success, query);
}

HRESULT ReadQuery(IStream* stream, PrinterElementsQuery* query) {
    ComPtr<IXMLDOMDocument2> document;
    HRESULT hr = CreateDocument(&document);
    if (SUCCEEDED(hr)) hr = stream->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
    if (FAILED(hr)) return hr;
    VARIANT input{};
    input.vt = VT_UNKNOWN;
    input.punkVal = stream;
    VARIANT_BOOL success = VARIANT_FALSE;
    const HRESULT loaded = document->load(input, &success);
    return ReadDocument(document.Get(), loaded, success, query);
}

}  // namespace vlm
