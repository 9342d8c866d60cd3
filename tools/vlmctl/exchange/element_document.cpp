#include "tools/vlmctl/exchange/element_document.h"

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/failure.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "util/namespaces.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/xml_text.h"

namespace vlm::ctl {

namespace {

constexpr size_t kLongestText = 1000;
constexpr size_t kIndent = 2;

// Line separators inside a value, and whatever else moves a terminal's cursor or mode, as a reference.
std::wstring Escaped(const std::wstring& text) {
    std::wstring escaped;
    for (const wchar_t c : EscapeXml(text)) {
        const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
        escaped += control ? FromUtf8(fmt::format("&#x{:X};", static_cast<unsigned>(c))) : std::wstring(1, c);
    }
    return escaped;
}

std::wstring ValueOf(IXMLDOMNode* node) {
    _variant_t value;
    if (FAILED(node->get_nodeValue(&value)) || value.vt != VT_BSTR || value.bstrVal == nullptr) return {};
    return {value.bstrVal, SysStringLen(value.bstrVal)};
}

// Names and values, without namespace declarations.
std::vector<std::pair<std::wstring, std::wstring>> AttributesOf(IXMLDOMNode* element) {
    std::vector<std::pair<std::wstring, std::wstring>> list;
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    if (element->get_attributes(attributes.Receive()) != S_OK || !attributes) return list;
    ComPtr<IXMLDOMNode> attribute;
    while (attributes->nextNode(attribute.Receive()) == S_OK && attribute) {
        const std::wstring name = NameOf(attribute.Get());
        if (name != L"xmlns" && !name.starts_with(L"xmlns:"))
            list.emplace_back(name, ValueOf(attribute.Get()));
    }
    return list;
}

// The cleaned document declares everything on its root; below it a default namespace may be undone.
bool UndoesDefault(IXMLDOMNode* element) {
    const auto hasUri = [](IXMLDOMNode* node) {
        _bstr_t uri;
        return node->get_namespaceURI(uri.GetAddress()) == S_OK && uri.length() != 0;
    };
    ComPtr<IXMLDOMNode> parent;
    return !hasUri(element) && element->get_parentNode(parent.Receive()) == S_OK && parent &&
           NameOf(parent.Get()).find(L':') == std::wstring::npos && hasUri(parent.Get());
}

// The depth of a printer's answer is bounded where it is cleaned up, so recursion is, too.
void AppendElement(std::wstring& out, IXMLDOMNode* element, size_t depth,
                   const NamespaceDeclarations& declarations = {}) {
    const std::wstring name = NameOf(element);
    std::wstring elements;
    std::wstring text;
    for (const ComPtr<IXMLDOMNode>& child : NodesAt(element, L"* | text()")) {
        if (TypeOf(child.Get()) == NODE_ELEMENT)
            AppendElement(elements, child.Get(), depth + 1);
        else
            text += ValueOf(child.Get());
    }
    const std::wstring indent(depth * kIndent, L' ');
    out += indent + L"<" + name + (UndoesDefault(element) ? L" xmlns=\"\"" : L"");
    for (const NamespaceDeclaration& one : declarations)
        out += (one.prefix.empty() ? L" xmlns" : L" xmlns:" + one.prefix) + L"=\"" + Escaped(one.uri) + L"\"";
    for (const auto& [attribute, value] : AttributesOf(element))
        out += L" " + attribute + L"=\"" + Escaped(value) + L"\"";
    if (elements.empty() && text.empty()) {
        out += L"/>\n";
    } else if (elements.empty()) {
        out += L">" + Escaped(text) + L"</" + name + L">\n";
    } else {
        out += L">\n" + elements;
        if (!text.empty()) out += indent + std::wstring(kIndent, L' ') + Escaped(text) + L"\n";
        out += indent + L"</" + name + L">\n";
    }
}

// The name of the element that the part is about: of the one in it, if there is one, since a printer may
// write the part's own name without a prefix, or with blanks around it.
std::string NameOfPart(IXMLDOMNode* part) {
    const std::vector<ComPtr<IXMLDOMNode>> elements = NodesAt(part, L"*");
    if (!elements.empty()) return ToUtf8(NameOf(elements.front().Get()));
    const std::string name = AttributeAt(part, L"Name");
    return name.find(':') == std::string::npos ? "pri:" + name : name;
}

}  // namespace

ElementDocument::ElementDocument(const std::string& url, const std::string& cleaned) {
    const std::string shown = Shown(url);
    try {
        document_.Init();
        document_.LoadBytes(cleaned, nullptr);
        DeclaredNamespaces namespaces;
        if (const HRESULT hr = namespaces.Read(cleaned); FAILED(hr)) throw _com_error(hr);
        declarations_ = namespaces.Of(0);
    } catch (...) {
        ThrowFailure(shown, CaughtOutcome());
    }
    document_.SetSelectionNamespaces({{L"soap", ns::kSoap12}, {L"pri", ns::kWsdPrint}});
    if (const ComPtr<IXMLDOMNode> fault =
            document_.SelectSingleNode(L"/soap:Envelope/soap:Body/soap:Fault")) {
        const std::string reason = TextAt(fault.Get(), L"soap:Reason/soap:Text");
        throw CommandError(shown + " refuses the request: " + (reason.empty() ? "no reason given" : reason));
    }
    if (!document_.SelectSingleNode(L"/soap:Envelope/soap:Body/pri:GetPrinterElementsResponse"))
        throw CommandError(shown + " is not a WSD print service: its answer contains no printer elements");
    parts_ = NodesAt(document_.Root().Get(),
                     L"soap:Body/pri:GetPrinterElementsResponse/pri:PrinterElements/pri:ElementData");
}

PartNames NamesOf(const ElementDocument& document) {
    PartNames names;
    for (const ComPtr<IXMLDOMNode>& part : document.Parts()) {
        // Some printers leave the mark out, and mean that all is well.
        const std::string mark = AttributeAt(part.Get(), L"Valid");
        const bool denied = mark == "0" || _stricmp(mark.c_str(), "false") == 0;
        (denied ? names.invalid : names.valid).push_back(NameOfPart(part.Get()));
    }
    return names;
}

std::string Indented(IXMLDOMNode* element, const NamespaceDeclarations& declarations) {
    std::wstring text;
    AppendElement(text, element, 0, declarations);
    return ToUtf8(text);
}

Json ElementJson(IXMLDOMNode* element) {
    Json json{{"name", ToUtf8(NameOf(element))},
              {"attributes", Json::object()},
              {"text", ""},
              {"children", Json::array()}};
    for (const auto& [name, value] : AttributesOf(element))
        json["attributes"][ToUtf8(name)] = ToUtf8(value);
    std::wstring text;
    for (const ComPtr<IXMLDOMNode>& node : NodesAt(element, L"* | text()")) {
        if (TypeOf(node.Get()) == NODE_ELEMENT)
            json["children"].push_back(ElementJson(node.Get()));
        else
            text += ValueOf(node.Get());
    }
    json["text"] = ToUtf8(std::wstring(TrimXmlSpace(text)));
    return json;
}

DOMNodeType TypeOf(IXMLDOMNode* node) {
    DOMNodeType type = NODE_INVALID;
    node->get_nodeType(&type);
    return type;
}

std::vector<ComPtr<IXMLDOMNode>> NodesAt(IXMLDOMNode* node, const wchar_t* xpath) {
    ComPtr<IXMLDOMNodeList> list;
    const HRESULT result = node->selectNodes(_bstr_t(xpath), list.Receive());
    if (FAILED(result)) _com_issue_error(result);
    std::vector<ComPtr<IXMLDOMNode>> nodes;
    while (ComPtr<IXMLDOMNode> next = NextNode(list.Get()))
        nodes.push_back(std::move(next));
    return nodes;
}

std::string TextAt(IXMLDOMNode* node, const wchar_t* xpath) {
    const std::vector<ComPtr<IXMLDOMNode>> nodes = NodesAt(node, xpath);
    return nodes.empty() ? std::string()
                         : ToUtf8(Printable(TrimXmlSpace(TextOf(nodes.front().Get())), kLongestText));
}

std::string AttributeAt(IXMLDOMNode* node, const std::wstring& name) {
    return TextAt(node, (L"@" + name + L" | @pri:" + name).c_str());
}

}  // namespace vlm::ctl
