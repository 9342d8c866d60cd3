#include "util/sax.h"

#include "util/outcome.h"
#include "util/scope_exit.h"
#include "util/streams.h"
#include "util/xml_bounds.h"

namespace vlm {

namespace {

// The reader's strings are not terminated, and may be null when empty.
std::wstring_view View(const wchar_t* text, int length) {
    return text == nullptr || length <= 0 ? std::wstring_view()
                                          : std::wstring_view(text, static_cast<size_t>(length));
}

HRESULT ReadAttributes(ISAXAttributes* source, XmlAttributes* attributes) {
    attributes->clear();
    int count = 0;
    HRESULT hr = source->getLength(&count);
    if (FAILED(hr)) return hr;
    for (int i = 0; i < count; ++i) {
        struct {
            const wchar_t* text = nullptr;
            int length = 0;
        } uri, local, name, value;
        hr = source->getName(i, &uri.text, &uri.length, &local.text, &local.length, &name.text, &name.length);
        if (SUCCEEDED(hr)) hr = source->getValue(i, &value.text, &value.length);
        if (FAILED(hr)) return hr;
        const std::wstring_view qualified = View(name.text, name.length);
        if (qualified == L"xmlns" || qualified.starts_with(L"xmlns:")) continue;
        attributes->push_back({{View(uri.text, uri.length), View(local.text, local.length), qualified},
                               View(value.text, value.length)});
    }
    return S_OK;
}

}  // namespace

STDMETHODIMP SaxHandler::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) return E_POINTER;
    const bool known = iid == IID_IUnknown || iid == msxml::kISAXContentHandler;
    *object = known ? static_cast<ISAXContentHandler*>(this) : nullptr;
    return known ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP SaxHandler::startPrefixMapping(const wchar_t* prefix, int prefixLength, const wchar_t* uri,
                                            int uriLength) {
    return GuardHresult([&] { return OnPrefix(View(prefix, prefixLength), View(uri, uriLength)); });
}

STDMETHODIMP SaxHandler::startElement(const wchar_t* uri, int uriLength, const wchar_t* local,
                                      int localLength, const wchar_t* name, int nameLength,
                                      ISAXAttributes* attributes) {
    return GuardHresult([&] {
        const HRESULT hr = ReadAttributes(attributes, &attributes_);
        if (FAILED(hr)) return hr;
        return OnStart({View(uri, uriLength), View(local, localLength), View(name, nameLength)}, attributes_);
    });
}

STDMETHODIMP SaxHandler::endElement(const wchar_t* uri, int uriLength, const wchar_t* local, int localLength,
                                    const wchar_t*, int) {
    return GuardHresult([&] { return OnEnd({View(uri, uriLength), View(local, localLength)}); });
}

STDMETHODIMP SaxHandler::characters(const wchar_t* text, int length) {
    return GuardHresult([&] { return OnText(View(text, length)); });
}

HRESULT CreateSaxReader(ISAXXMLReader** reader) {
    return CoCreateInstance(msxml::kSaxXmlReader30, nullptr, CLSCTX_INPROC_SERVER, msxml::kISAXXMLReader,
                            reinterpret_cast<void**>(reader));
}

HRESULT ParseXml(ISAXXMLReader* reader, std::string_view document, SaxHandler* handler) {
    std::string ready;
    const XmlRefusal refusal = CheckXmlBounds(document, kPrinterAnswerLimits, &ready);
    if (refusal != XmlRefusal::kNone) return handler->Refuse(RefusalText(refusal));
    return ParseReadyXml(reader, ready, handler);
}

HRESULT ParseReadyXml(ISAXXMLReader* reader, std::string_view document, SaxHandler* handler) {
    // A stream, not a string: fed with a string, some readers take quadratic time.
    ComPtr<IStream> stream;
    HRESULT hr = MakeStream(document, stream.Receive());
    if (SUCCEEDED(hr)) hr = reader->putContentHandler(handler);
    if (FAILED(hr)) return hr;
    const ScopeExit detach([&] { reader->putContentHandler(nullptr); });
    VARIANT input{};
    input.vt = VT_UNKNOWN;
    input.punkVal = stream.Get();
    hr = reader->parse(input);
    // A reader that stops for any other reason than the end of a well-formed document may say so with a
    // success code.
    return hr == S_OK || FAILED(hr) ? hr : E_FAIL;
}

}  // namespace vlm
