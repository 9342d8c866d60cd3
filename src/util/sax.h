// MSXML's SAX reader, made safe for documents from outside.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

#include "util/com.h"
#include "util/outcome.h"
#include "util/xml_event.h"

namespace vlm {

// The events of one document. A derived class overrides what it needs; a failure that it returns ends the
// parse and becomes its result, as does an exception. Names and texts live as long as the call that brings
// them; text comes in pieces cut at will.
//
// An object of the caller's scope: the reader's references do not keep it alive, and ParseXml() leaves none
// behind.
#if defined(__GNUC__)
// COM interfaces have no virtual destructor, and no object is destroyed through one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif
class SaxHandler : public ISAXContentHandler {
 public:
    SaxHandler() = default;
    virtual ~SaxHandler() = default;
    SaxHandler(const SaxHandler&) = delete;
    SaxHandler& operator=(const SaxHandler&) = delete;

    // Why the document was refused, by the handler or before the parse: "has too many namespaces".
    // Empty where the parser itself stopped.
    const std::wstring& Reason() const { return reason_; }
    // For an event to return; E_FAIL.
    HRESULT Refuse(std::wstring reason) {
        reason_ = std::move(reason);
        return E_FAIL;
    }

 protected:
    // A namespace declaration, before the start of the element that carries it.
    virtual HRESULT OnPrefix(std::wstring_view, std::wstring_view) { return S_OK; }
    virtual HRESULT OnPrefixEnd() { return S_OK; }
    // Declarations are not among the attributes.
    virtual HRESULT OnStart(const XmlName& name, const XmlAttributes& attributes) = 0;
    virtual HRESULT OnEnd(const XmlName& name) = 0;
    virtual HRESULT OnText(std::wstring_view) { return S_OK; }
    virtual HRESULT OnDocumentEnd() { return S_OK; }

 private:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP putDocumentLocator(ISAXLocator*) override { return S_OK; }
    STDMETHODIMP startDocument() override { return S_OK; }
    STDMETHODIMP endDocument() override {
        return GuardHresult([&] { return OnDocumentEnd(); });
    }
    STDMETHODIMP startPrefixMapping(const wchar_t* prefix, int prefixLength, const wchar_t* uri,
                                    int uriLength) override;
    STDMETHODIMP endPrefixMapping(const wchar_t*, int) override {
        return GuardHresult([&] { return OnPrefixEnd(); });
    }
    STDMETHODIMP startElement(const wchar_t* uri, int uriLength, const wchar_t* local, int localLength,
                              const wchar_t* name, int nameLength, ISAXAttributes* attributes) override;
    STDMETHODIMP endElement(const wchar_t* uri, int uriLength, const wchar_t* local, int localLength,
                            const wchar_t* name, int nameLength) override;
    STDMETHODIMP characters(const wchar_t* text, int length) override;
    STDMETHODIMP ignorableWhitespace(const wchar_t* text, int length) override {
        return characters(text, length);
    }
    STDMETHODIMP processingInstruction(const wchar_t*, int, const wchar_t*, int) override { return S_OK; }
    STDMETHODIMP skippedEntity(const wchar_t*, int) override { return S_OK; }

    XmlAttributes attributes_;  // kept for its memory
    std::wstring reason_;
};
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

HRESULT CreateSaxReader(ISAXXMLReader** reader);

// Parses a whole document. S_OK when it is well-formed and the handler took every event; else a failure: the
// handler's, or the parser's, or E_FAIL for a document that is refused before the parse (see
// util/xml_bounds.h). The reader can be used again after either.
HRESULT ParseXml(ISAXXMLReader* reader, std::string_view document, SaxHandler* handler);

// The same for a document that CheckXmlBounds has passed and made quick to parse.
HRESULT ParseReadyXml(ISAXXMLReader* reader, std::string_view document, SaxHandler* handler);

}  // namespace vlm
