#include "bidi/extension_files.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "bidi/engine_error.h"
#include "util/handles.h"
#include "util/namespaces.h"
#include "util/trace.h"
#include "util/xml_bounds.h"

namespace vlm {

namespace {

[[noreturn]] void ThrowRefusal(const std::wstring& path, const wchar_t* why) {
    ThrowEngineError(HRESULT_FROM_WIN32(ERROR_INVALID_DATA),
                     L"extension file " + Printable(path, MAX_PATH) + L" " + why);
}

[[noreturn]] void RefuseUnreadable(const std::wstring& path) {
    const std::wstring why = DescribeHresult(HRESULT_FROM_WIN32(GetLastError()));
    const std::wstring shown = Printable(path, MAX_PATH);
    ThrowTracedError(L"Unable to load file " + shown,
                     L"extension file \"" + shown + L"\" cannot be read: " + why);
}

// Reads the file and checks its bounds before a parser sees it.
std::string ReadWithinBounds(const std::wstring& path) {
    // The parser would fetch an address from the network.
    if (path.find(L"://") != std::wstring::npos) ThrowRefusal(path, L"is not a file");
    const File file(CreateFileW(path.c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) RefuseUnreadable(path);
    // A pipe or a device may never end.
    if (GetFileType(file.Get()) != FILE_TYPE_DISK) ThrowRefusal(path, L"is not a file");
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.Get(), &size)) RefuseUnreadable(path);
    if (static_cast<ULONGLONG>(size.QuadPart) > kExtensionFileLimits.bytes) {
        ThrowRefusal(path, RefusalText(XmlRefusal::kTooLarge));
    }
    std::string text(static_cast<size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    if (!ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr))
        RefuseUnreadable(path);
    text.resize(read);
    const XmlRefusal refusal = CheckXmlBounds(text, kExtensionFileLimits);
    if (refusal != XmlRefusal::kNone) ThrowRefusal(path, RefusalText(refusal));
    return text;
}

ElementKind KindOf(IXMLDOMNode* node, const std::wstring& tag) {
    static constexpr std::pair<const wchar_t*, ElementKind> kKinds[] = {
        {L"Schema", ElementKind::kSchema},       {L"Property", ElementKind::kProperty},
        {L"Parameter", ElementKind::kParameter}, {L"Value", ElementKind::kValue},
        {L"Installed", ElementKind::kInstalled}, {L"List", ElementKind::kList},
        {L"Const", ElementKind::kConst},
    };
    for (const auto& [name, kind] : kKinds) {
        if (tag != name) continue;
        // The levels of a schema have no namespace, so that XPath finds them without a prefix; a leaf is told
        // by its written name alone.
        if (kind >= ElementKind::kValue) return kind;
        _bstr_t uri;
        CheckEngine(node->get_namespaceURI(uri.GetAddress()));
        return uri.length() == 0 ? kind : ElementKind::kOther;
    }
    return ElementKind::kOther;
}

std::optional<std::wstring> TextIn(const _variant_t& value) {
    if (value.vt != VT_BSTR) return std::nullopt;
    return std::wstring(value.bstrVal != nullptr ? value.bstrVal : L"");
}

std::optional<std::wstring> AttributeIn(IXMLDOMNamedNodeMap* attributes, const _bstr_t& name) {
    ComPtr<IXMLDOMNode> attribute;
    if (attributes != nullptr) CheckEngine(attributes->getNamedItem(name, attribute.Receive()));
    if (!attribute) return std::nullopt;
    _variant_t value;
    CheckEngine(attribute->get_nodeValue(&value));
    return TextIn(value);
}

class Reader {
 public:
    Reader(const std::wstring& path, const DeclaredNamespaces& namespaces, QueryBudget& budget)
        : file_(std::make_shared<const std::wstring>(path)), namespaces_(namespaces), budget_(budget) {}

    // The root first. As deep as the document, which is bounded.
    SchemaElement Read(IXMLDOMNode* node) {
        budget_.Spend(Expense::kSchemaElements, 1, *file_);
        SchemaElement element;
        element.file = file_;
        element.tag = NameOf(node);
        element.kind = KindOf(node, element.tag);
        ComPtr<IXMLDOMNamedNodeMap> attributes;
        CheckEngine(node->get_attributes(attributes.Receive()));
        for (const auto& [name, member] : attributes_)
            element.*member = AttributeIn(attributes.Get(), name);
        if (element.kind == ElementKind::kConst) element.text = TextOf(node);
        element.number = elements_++;
        if (element.kind == ElementKind::kSchema) {
            element.namespaces = namespaces_.Of(element.number);
            // xmlns="" says that names without prefix are in no namespace, which they are in XPath anyway.
            std::erase_if(element.namespaces,
                          [](const auto& declaration) { return declaration.uri.empty(); });
        }
        ComPtr<IXMLDOMNode> child;
        CheckEngine(node->get_firstChild(child.Receive()));
        while (child) {
            DOMNodeType type = NODE_INVALID;
            CheckEngine(child->get_nodeType(&type));
            if (type == NODE_ELEMENT) element.children.push_back(Read(child.Get()));
            ComPtr<IXMLDOMNode> next;
            CheckEngine(child->get_nextSibling(next.Receive()));
            child = std::move(next);
        }
        return element;
    }

 private:
    std::shared_ptr<const std::wstring> file_;
    const DeclaredNamespaces& namespaces_;
    size_t elements_ = 0;  // so far, in document order
    QueryBudget& budget_;
    const std::pair<_bstr_t, std::optional<std::wstring> SchemaElement::*> attributes_[5] = {
        {L"name", &SchemaElement::name},
        {L"type", &SchemaElement::type},
        {L"filter", &SchemaElement::filter},
        {L"query", &SchemaElement::query},
        {L"parameter", &SchemaElement::parameter}};
};

SchemaElement ReadExtensionFile(const std::wstring& path, QueryBudget& budget) {
    budget.CheckTime(path);
    // The parser does not open the file itself: it might have been replaced since it was checked.
    const std::string text = ReadWithinBounds(path);
    budget.Spend(Expense::kFileBytes, text.size(), path);
    CXMLDoc document;
    document.Init();
    document.LoadFileBytes(path.c_str(), text, ns::kBidi);
    const ComPtr<IXMLDOMElement> root = document.Root();
    if (!root) ThrowEngineError(E_FAIL);
    return Reader(path, document.Namespaces(), budget).Read(root.Get());
}

// The first child of each tag and name. Without a name: of each tag, whatever its name.
using ChildIndex = std::map<std::pair<std::wstring, std::optional<std::wstring>>, size_t>;

void AddTo(ChildIndex& index, const SchemaElement& child, size_t position) {
    index.emplace(std::pair(child.tag, std::nullopt), position);
    if (child.name) index.emplace(std::pair(child.tag, child.name), position);
}

void Merge(SchemaElement& existing, SchemaElement&& added) {
    if (existing.kind == ElementKind::kSchema && added.kind == ElementKind::kSchema) {
        ReconcileNamespaces(existing.namespaces, added.namespaces, Printable(*added.file, MAX_PATH));
    }
    if (added.children.empty()) return;
    ChildIndex index;
    for (size_t i = 0; i < existing.children.size(); ++i)
        AddTo(index, existing.children[i], i);
    for (SchemaElement& child : added.children) {
        if (child.name) RefuseApostrophe(*child.name, DescribeElement(child));
        const auto match = index.find({child.tag, child.name});
        if (match != index.end()) {
            Merge(existing.children[match->second], std::move(child));
        } else {
            AddTo(index, child, existing.children.size());
            existing.children.push_back(std::move(child));
        }
    }
}

}  // namespace

void ReconcileNamespaces(std::vector<NamespaceDeclaration>& declarations,
                         const std::vector<NamespaceDeclaration>& added, const std::wstring& source) {
    for (const NamespaceDeclaration& declaration : added) {
        const NamespaceDeclaration* const known = FindPrefix(declarations, declaration.prefix);
        if (known == nullptr) {
            declarations.push_back(declaration);
        } else if (known->uri != declaration.uri) {
            const std::wstring prefix = L"prefix \"" + Printable(declaration.prefix) + L"\"";
            std::wstring reason = prefix;
            reason += L" is \"" + Printable(declaration.uri) + L"\" in " + source;
            reason += L", but \"" + Printable(known->uri) + L"\" in the extension files before it";
            ThrowTracedError(L"Mismatch in extension file(s) and/or WSD stream - same " + prefix +
                                 L" refers to different namespace URLs",
                             reason);
        }
    }
}

SchemaElement LoadExtensionFiles(const wchar_t* fileListXml, QueryBudget& budget) {
    CXMLDoc list;
    list.Init();
    list.LoadXml(fileListXml, nullptr);
    const ComPtr<IXMLDOMNodeList> files = list.SelectNodes(L"//BidiXml");

    std::optional<SchemaElement> merged;
    while (const ComPtr<IXMLDOMNode> file = NextNode(files.Get())) {
        _variant_t value;
        list.GetAttribute(file.Get(), L"path", &value);
        const std::wstring path = TextIn(value).value_or(L"");
        SchemaElement root = ReadExtensionFile(path, budget);
        if (merged) {
            Merge(*merged, std::move(root));
        } else {
            merged = std::move(root);
        }
    }
    if (!merged) {
        Trace(L"No extension files found in\r\n%ls\r\n", Printable(fileListXml, 1024).c_str());
        ThrowEngineError(E_FAIL, L"the driver names no extension files");
    }
    return *std::move(merged);
}

}  // namespace vlm
