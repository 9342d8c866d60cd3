// CXMLDoc: the one wrapper around an MSXML 6.0 DOM document. It loads a document from a file, a text or a
// stream and prepares it for XPath selection with namespace prefixes.
//
// XPath sees no prefix but those of the document's "SelectionNamespaces". A load that names a target
// namespace takes them from the first element, in document order, that declares that namespace; a default
// namespace among them gets the prefix "defNsPfx".
//
// COM must be initialised on the thread, and the object stays on it. Unless stated otherwise every function
// throws CComErrorEx (source "vlxml") on failure, and _com_error without a position for a missing document
// (E_POINTER) and for strings that cannot be allocated (E_OUTOFMEMORY).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "util/com.h"
#include "util/comerror.h"
#include "util/xml_names.h"
#include "util/xml_namespaces.h"

namespace vlm {

inline constexpr wchar_t kDefaultNamespaceDeclaration[] = L"defNsPfx";

class CXMLDoc {
 public:
    // Creates the document, in place of one already held. Once, before the first load.
    void Init();

    // A null `namespaceUri` loads without preparing XPath. Otherwise a document that declares that namespace
    // nowhere is refused. What cannot be loaded is traced, with the parser's report, and throws E_FAIL with a
    // reason that names the file or what else it was. After a failed load the document stays, empty or
    // partial.
    void LoadFile(const wchar_t* path, const wchar_t* namespaceUri);
    // The same with what the caller has read from that file, so that it cannot change in between.
    void LoadFileBytes(const wchar_t* path, std::string_view bytes, const wchar_t* namespaceUri);
    void LoadXml(const wchar_t* text, const wchar_t* namespaceUri);
    // Reads from the stream's current position.
    void LoadStream(IStream* stream, const wchar_t* namespaceUri);
    void LoadBytes(std::string_view bytes, const wchar_t* namespaceUri);

    // Makes them the prefixes that XPath knows.
    void SetSelectionNamespaces(const NamespaceDeclarations& declarations);

    // False when the node has no such attribute. Does not see namespace declarations.
    bool GetAttribute(IXMLDOMNode* node, const wchar_t* name, VARIANT* value) const;
    // The parser's report on the last load; false when it reports nothing.
    bool FormatParseError(_bstr_t_ex& out) const;

    IXMLDOMDocument2* Document() const { return document_.Get(); }
    // Of the last load that named and found one.
    const _bstr_t& TargetNamespace() const { return targetNamespace_; }
    // What the elements declare, after such a load.
    const DeclaredNamespaces& Namespaces() const { return namespaces_; }

    // The root element, or null in an empty document.
    ComPtr<IXMLDOMElement> Root() const;
    // The first match in document order, or null. An expression that XPath refuses throws.
    ComPtr<IXMLDOMNode> SelectSingleNode(const wchar_t* xpath) const;
    ComPtr<IXMLDOMNodeList> SelectNodes(const wchar_t* xpath) const;

 private:
    // Of the last load.
    struct ParseError {
        LONG code = 0;  // 0: there was none
        LONG line = 0;
        LONG position = 0;
        std::wstring reason;
    };
    ParseError LastParseError() const;
    IXMLDOMDocument2& Loaded() const;
    // `subject` begins the reason of a failure; `traced` is how the trace names it, if at all.
    void LoadFrom(std::string_view bytes, const wchar_t* namespaceUri, const std::wstring& subject,
                  const std::wstring& traced);
    void AfterLoad(bool success, const std::wstring& subject, const std::wstring& traced);
    // The document as UTF-8, after a load in which only the parser saw its bytes.
    std::string Serialised() const;
    void PrepareXPath(std::string_view bytes, const wchar_t* namespaceUri, const std::wstring& subject);
    void SetProperty(const wchar_t* name, const wchar_t* value);

    ComPtr<IXMLDOMDocument2> document_;
    _bstr_t targetNamespace_;
    DeclaredNamespaces namespaces_;
};

// The text of the node and all its descendants, without white space at the ends.
std::wstring TextOf(IXMLDOMNode* node);
// The qualified name.
std::wstring NameOf(IXMLDOMNode* node);
// The next node of a list, or null at its end.
ComPtr<IXMLDOMNode> NextNode(IXMLDOMNodeList* list);

}  // namespace vlm
