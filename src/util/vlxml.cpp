#include "util/vlxml.h"

#include <cstdint>

#include "util/streams.h"
#include "util/trace.h"

namespace vlm {

namespace {

// Reports the line of the call (a builtin that every compiler of ours knows).
void Check(HRESULT hr, unsigned line = __builtin_LINE()) {
    if (FAILED(hr)) throw CComErrorEx(hr, "vlxml", line);
}

[[noreturn]] void ThrowReason(const std::wstring& reason, unsigned line = __builtin_LINE()) {
    throw CComErrorEx(E_FAIL, "vlxml", line, reason.c_str());
}

std::wstring StringOf(_bstr_t& text) {
    const auto* characters = static_cast<const wchar_t*>(text);
    return characters != nullptr ? std::wstring(characters, text.length()) : std::wstring();
}

}  // namespace

std::wstring TextOf(IXMLDOMNode* node) {
    _bstr_t text;
    Check(node->get_text(text.GetAddress()));
    // MSXML takes that of elements away itself, but for CDATA and under xml:space, and none of attributes'.
    return std::wstring(TrimXmlSpace(StringOf(text)));
}

std::wstring NameOf(IXMLDOMNode* node) {
    _bstr_t name;
    Check(node->get_nodeName(name.GetAddress()));
    return StringOf(name);
}

ComPtr<IXMLDOMNode> NextNode(IXMLDOMNodeList* list) {
    ComPtr<IXMLDOMNode> node;
    Check(list->nextNode(node.Receive()));
    return node;
}

void CXMLDoc::Init() {
    document_.Reset();
    ComPtr<IUnknown> object;
    Check(CoCreateInstance(msxml::kDomDocument60, nullptr, CLSCTX_ALL, IID_IUnknown, object.ReceiveVoid()));
    Check(OleRun(object.Get()));
    ComPtr<IXMLDOMDocument2> document;
    Check(object->QueryInterface(msxml::kIXMLDOMDocument2, document.ReceiveVoid()));
    Check(document->put_async(VARIANT_FALSE));
    Check(document->put_validateOnParse(VARIANT_FALSE));
    Check(document->put_resolveExternals(VARIANT_FALSE));
    document_ = std::move(document);
}

void CXMLDoc::LoadFile(const wchar_t* path, const wchar_t* namespaceUri) {
    IXMLDOMDocument2& document = Loaded();
    if (path == nullptr) Check(E_INVALIDARG);
    VARIANT_BOOL success = VARIANT_FALSE;
    const HRESULT hr = document.load(_variant_t(path), &success);
    Check(hr);
    const std::wstring shown = Printable(path, MAX_PATH);
    AfterLoad(hr == S_OK && success == VARIANT_TRUE, shown, L"file " + shown);
    if (namespaceUri != nullptr) PrepareXPath(Serialised(), namespaceUri, shown);
}

void CXMLDoc::LoadFileBytes(const wchar_t* path, std::string_view bytes, const wchar_t* namespaceUri) {
    const std::wstring shown = Printable(path, MAX_PATH);
    LoadFrom(bytes, namespaceUri, shown, L"file " + shown);
}

void CXMLDoc::LoadXml(const wchar_t* text, const wchar_t* namespaceUri) {
    IXMLDOMDocument2& document = Loaded();
    VARIANT_BOOL success = VARIANT_FALSE;
    const HRESULT hr = document.loadXML(_bstr_t(text), &success);
    Check(hr);
    AfterLoad(hr == S_OK && success == VARIANT_TRUE, L"the XML text", {});
    if (namespaceUri != nullptr) PrepareXPath(Serialised(), namespaceUri, L"the XML text");
}

void CXMLDoc::LoadStream(IStream* stream, const wchar_t* namespaceUri) {
    Loaded();
    if (stream == nullptr) Check(E_INVALIDARG);
    std::string bytes;
    Check(ReadStream(stream, SIZE_MAX, &bytes));
    LoadBytes(bytes, namespaceUri);
}

void CXMLDoc::LoadBytes(std::string_view bytes, const wchar_t* namespaceUri) {
    LoadFrom(bytes, namespaceUri, L"the printer's answer", L"WSD stream");
}

void CXMLDoc::LoadFrom(std::string_view bytes, const wchar_t* namespaceUri, const std::wstring& subject,
                       const std::wstring& traced) {
    ComPtr<IStream> stream;
    Check(MakeStream(bytes, stream.Receive()));
    const _variant_t source(static_cast<IUnknown*>(stream.Get()));
    VARIANT_BOOL success = VARIANT_FALSE;
    // For a stream that is not XML some parsers return a failure and others a plain "not loaded". Both mean
    // the same here.
    const bool loaded = Loaded().load(source, &success) == S_OK && success == VARIANT_TRUE;
    AfterLoad(loaded, subject, traced);
    if (namespaceUri != nullptr) PrepareXPath(bytes, namespaceUri, subject);
}

void CXMLDoc::AfterLoad(bool success, const std::wstring& subject, const std::wstring& traced) {
    if (success) return;
    if (!traced.empty()) Trace(L"Error: Unable to load %ls\r\n", traced.c_str());
    const ParseError error = LastParseError();
    _bstr_t_ex report;
    if (FormatParseError(report)) Trace(L"%ls", report.Text());
    std::wstring reason = subject + L": ";
    // Some parsers tell no position.
    if (error.line > 0)
        reason += L"line " + std::to_wstring(error.line) + L", character " + std::to_wstring(error.position) +
                  L": ";
    ThrowReason(reason + (error.reason.empty() ? L"not well-formed XML" : error.reason));
}

std::string CXMLDoc::Serialised() const {
    _bstr_t text;
    Check(Loaded().get_xml(text.GetAddress()));
    return DocumentToUtf8(StringOf(text));
}

void CXMLDoc::PrepareXPath(std::string_view bytes, const wchar_t* namespaceUri, const std::wstring& subject) {
    SetProperty(L"SelectionLanguage", L"XPath");
    Check(namespaces_.Read(bytes));
    const NamespaceDeclarations* const declarations = namespaces_.OfFirstWith(namespaceUri);
    if (declarations == nullptr) {
        Trace(L"** XML Error: unable to find namespace \"%ls\" **\r\n", namespaceUri);
        ThrowReason(subject + L": declares the namespace \"" + namespaceUri + L"\" nowhere");
    }
    SetSelectionNamespaces(*declarations);
    targetNamespace_ = namespaceUri;
}

void CXMLDoc::SetSelectionNamespaces(const NamespaceDeclarations& declarations) {
    // Blanks, not other white space, between the declarations: with anything else some parsers bind wrongly.
    std::wstring text;
    for (const NamespaceDeclaration& declaration : declarations) {
        // A default namespace that is undone: no prefix may stand for none.
        if (declaration.uri.empty()) continue;
        const wchar_t quote = declaration.uri.find(L'"') == std::wstring::npos ? L'"' : L'\'';
        const std::wstring prefix =
            declaration.prefix.empty() ? kDefaultNamespaceDeclaration : declaration.prefix;
        text += L"xmlns:" + prefix + L'=' + quote + declaration.uri + quote + L' ';
    }
    SetProperty(L"SelectionNamespaces", text.c_str());
}

bool CXMLDoc::GetAttribute(IXMLDOMNode* node, const wchar_t* name, VARIANT* value) const {
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    Check(node->get_attributes(attributes.Receive()));
    if (!attributes) return false;
    ComPtr<IXMLDOMNode> attribute;
    Check(attributes->getNamedItem(_bstr_t(name), attribute.Receive()));
    if (!attribute) return false;
    Check(attribute->get_nodeValue(value));
    return true;
}

CXMLDoc::ParseError CXMLDoc::LastParseError() const {
    ParseError last;
    ComPtr<IXMLDOMParseError> error;
    Check(Loaded().get_parseError(error.Receive()));
    if (!error) return last;
    Check(error->get_errorCode(&last.code));
    if (last.code == 0) return last;
    _bstr_t reason;
    Check(error->get_line(&last.line));
    Check(error->get_linepos(&last.position));
    Check(error->get_reason(reason.GetAddress()));
    std::wstring text = StringOf(reason);
    text.erase(text.find_last_not_of(L"\r\n ") + 1);
    last.reason = Printable(text);
    return last;
}

bool CXMLDoc::FormatParseError(_bstr_t_ex& out) const {
    const ParseError error = LastParseError();
    if (error.code == 0) return false;
    Format(out, L"** XML Parse error 0x%08x **\r\n   line=%d, char=%d\r\n   reason: %ls\r\n",
           static_cast<unsigned>(error.code), static_cast<int>(error.line), static_cast<int>(error.position),
           error.reason.c_str());
    return true;
}

ComPtr<IXMLDOMElement> CXMLDoc::Root() const {
    ComPtr<IXMLDOMElement> root;
    Check(Loaded().get_documentElement(root.Receive()));
    return root;
}

ComPtr<IXMLDOMNode> CXMLDoc::SelectSingleNode(const wchar_t* xpath) const {
    ComPtr<IXMLDOMNode> node;
    Check(Loaded().selectSingleNode(_bstr_t(xpath), node.Receive()));
    return node;
}

ComPtr<IXMLDOMNodeList> CXMLDoc::SelectNodes(const wchar_t* xpath) const {
    ComPtr<IXMLDOMNodeList> list;
    Check(Loaded().selectNodes(_bstr_t(xpath), list.Receive()));
    if (!list) Check(E_FAIL);
    return list;
}

IXMLDOMDocument2& CXMLDoc::Loaded() const {
    if (!document_) throw _com_error(E_POINTER);
    return *document_.Get();
}

void CXMLDoc::SetProperty(const wchar_t* name, const wchar_t* value) {
    Check(Loaded().setProperty(_bstr_t(name), _variant_t(value)));
}

}  // namespace vlm
