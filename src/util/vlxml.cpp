#include "util/vlxml.h"

#include <cstdint>

#include "util/handles.h"
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

constexpr wchar_t kXmlText[] = L"the XML text";
constexpr wchar_t kPrinterAnswer[] = L"the printer's answer";

std::wstring Shown(const wchar_t* path) {
    return Printable(path, MAX_PATH);
}

void TraceUnloadable(const std::wstring& shownPath) {
    Trace(L"Error: Unable to load file %ls\r\n", shownPath.c_str());
}

std::string BytesOf(const wchar_t* path) {
    const auto check = [](BOOL done) {
        if (!done) Check(HRESULT_FROM_WIN32(GetLastError()));
    };
    const File file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    check(static_cast<bool>(file));
    LARGE_INTEGER size{};
    check(GetFileSizeEx(file.Get(), &size));
    std::string bytes(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    check(ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr));
    bytes.resize(read);
    return bytes;
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
    const _variant_t source(path);
    VARIANT_BOOL success = VARIANT_FALSE;
    const HRESULT hr = document.load(source, &success);
    Check(hr);
    const bool loaded = hr == S_OK && success == VARIANT_TRUE;
    const std::wstring shown = Shown(path);
    if (!loaded) TraceUnloadable(shown);
    AfterLoad(loaded, shown);
    if (namespaceUri != nullptr) PrepareXPath(BytesOf(path), namespaceUri, shown);
}

void CXMLDoc::LoadFileBytes(const wchar_t* path, std::string_view bytes, const wchar_t* namespaceUri) {
    ComPtr<IStream> stream;
    Check(MakeStream(bytes, stream.Receive()));
    const bool loaded = LoadFrom(stream.Get());
    const std::wstring shown = Shown(path);
    if (!loaded) TraceUnloadable(shown);
    AfterLoad(loaded, shown);
    if (namespaceUri != nullptr) PrepareXPath(bytes, namespaceUri, shown);
}

void CXMLDoc::LoadXml(const wchar_t* text, const wchar_t* namespaceUri) {
    IXMLDOMDocument2& document = Loaded();
    const _bstr_t source(text);
    VARIANT_BOOL success = VARIANT_FALSE;
    const HRESULT hr = document.loadXML(source, &success);
    Check(hr);
    AfterLoad(hr == S_OK && success == VARIANT_TRUE, kXmlText);
    if (namespaceUri != nullptr) PrepareXPath(DocumentToUtf8(text), namespaceUri, kXmlText);
}

void CXMLDoc::LoadStream(IStream* stream, const wchar_t* namespaceUri) {
    Loaded();
    if (stream == nullptr) Check(E_INVALIDARG);
    std::string bytes;
    Check(ReadStream(stream, SIZE_MAX, &bytes));
    LoadBytes(bytes, namespaceUri);
}

void CXMLDoc::LoadBytes(std::string_view bytes, const wchar_t* namespaceUri) {
    ComPtr<IStream> stream;
    Check(MakeStream(bytes, stream.Receive()));
    const bool loaded = LoadFrom(stream.Get());
    if (!loaded) Trace(L"Error: Unable to load WSD stream\r\n");
    AfterLoad(loaded, kPrinterAnswer);
    if (namespaceUri != nullptr) PrepareXPath(bytes, namespaceUri, kPrinterAnswer);
}

// For a stream that is not XML some parsers return a failure and others a plain "not loaded". Both mean the
// same here.
bool CXMLDoc::LoadFrom(IStream* stream) {
    const _variant_t source(static_cast<IUnknown*>(stream));
    VARIANT_BOOL success = VARIANT_FALSE;
    return Loaded().load(source, &success) == S_OK && success == VARIANT_TRUE;
}

void CXMLDoc::AfterLoad(bool success, const std::wstring& subject) {
    if (success) return;
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
        text += L"xmlns:";
        text += declaration.prefix.empty() ? kDefaultNamespaceDeclaration : declaration.prefix;
        text += L'=';
        text += quote;
        text += declaration.uri;
        text += quote;
        text += L' ';
    }
    SetProperty(L"SelectionNamespaces", text.c_str());
}

bool CXMLDoc::GetAttribute(IXMLDOMNode* node, const wchar_t* name, VARIANT* value) const {
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    Check(node->get_attributes(attributes.Receive()));
    if (!attributes) return false;
    const _bstr_t key(name);
    ComPtr<IXMLDOMNode> attribute;
    Check(attributes->getNamedItem(key, attribute.Receive()));
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
    const _bstr_t query(xpath);
    ComPtr<IXMLDOMNode> node;
    Check(Loaded().selectSingleNode(query, node.Receive()));
    return node;
}

ComPtr<IXMLDOMNodeList> CXMLDoc::SelectNodes(const wchar_t* xpath) const {
    const _bstr_t query(xpath);
    ComPtr<IXMLDOMNodeList> list;
    Check(Loaded().selectNodes(query, list.Receive()));
    if (!list) Check(E_FAIL);
    return list;
}

IXMLDOMDocument2& CXMLDoc::Loaded() const {
    if (!document_) throw _com_error(E_POINTER);
    return *document_.Get();
}

void CXMLDoc::SetProperty(const wchar_t* name, const wchar_t* value) {
    const _bstr_t property(name);
    const _variant_t text(value);
    Check(Loaded().setProperty(property, text));
}

}  // namespace vlm
