#include "soap/soap_root_handler.h"

#include <algorithm>
#include <utility>

#include "util/namespaces.h"

namespace vlm {

namespace {

bool HasTrue(const XmlAttributes& attributes, std::wstring_view uri, std::wstring_view local) {
    return std::any_of(attributes.begin(), attributes.end(), [&](const XmlAttribute& attribute) {
        SoapValue value;
        return attribute.name.uri == uri && attribute.name.local == local &&
               ParseValue(XsdType::kBoolean, attribute.value, &value) && std::get<bool>(value);
    });
}

}  // namespace

HRESULT CVlSoapRootHandler::OnStart(const XmlName& name, const XmlAttributes& attributes) {
    open_.push_back({std::wstring(name.uri),
                     std::wstring(name.local),
                     HasTrue(attributes, ns::kSchemaInstance, L"nil"),
                     HasTrue(attributes, ns::kSoap12, L"mustUnderstand"),
                     {},
                     {}});
    return S_OK;
}

HRESULT CVlSoapRootHandler::OnText(std::wstring_view text) {
    open_.back().text += text;
    return S_OK;
}

HRESULT CVlSoapRootHandler::OnEnd(const XmlName&) {
    if (open_.size() == 1) return E_FAIL;
    Element element = std::move(open_.back());
    open_.pop_back();
    open_.back().children.push_back(std::move(element));
    return S_OK;
}

HRESULT CVlSoapRootHandler::OnDocumentEnd() {
    const std::vector<Element>& roots = open_.front().children;
    return roots.size() == 1 && ReadEnvelope(roots.front()) ? S_OK : E_FAIL;
}

bool CVlSoapRootHandler::ReadEnvelope(const Element& envelope) const {
    const auto isSoap = [](const Element& element, std::wstring_view name) {
        return element.uri == ns::kSoap12 && element.local == name;
    };
    if (!isSoap(envelope, L"Envelope")) return false;
    std::span<const Element> parts = envelope.children;
    if (!parts.empty() && isSoap(parts.front(), L"Header")) {
        if (!Understands(parts.front())) return false;
        parts = parts.subspan(1);
    }
    if (parts.size() != 1 || !isSoap(parts.front(), L"Body")) return false;
    const std::vector<Element>& body = parts.front().children;
    if (body.empty() || body.front().uri != operation_.uri) return false;
    const bool isResponse = body.front().local == std::wstring(operation_.name) + L"Response";
    return isResponse && ReadFields(body.front(), operation_.fields, kSoapOut, record_);
}

bool CVlSoapRootHandler::Understands(const Element& header) const {
    return std::all_of(header.children.begin(), header.children.end(), [&](const Element& entry) {
        const auto isEntry = [&](const SoapField& field) { return field.name == entry.local; };
        const auto& known = operation_.headers;
        return !entry.mustUnderstand ||
               (entry.uri == operation_.uri && std::any_of(known.begin(), known.end(), isEntry));
    });
}

bool CVlSoapRootHandler::ReadFields(const Element& parent, std::span<const SoapField> fields,
                                    unsigned neededFlags, SoapValues* values) const {
    for (size_t i = 0; i < fields.size(); ++i) {
        const SoapField& field = fields[i];
        if ((field.flags & neededFlags) != neededFlags) continue;
        const Element* found = nullptr;
        for (const Element& child : parent.children) {
            const bool isField =
                child.local == field.name && (child.uri.empty() || child.uri == operation_.uri);
            if (!isField) continue;
            if (found != nullptr) return false;
            found = &child;
        }
        if (!ReadField(found, field, &(*values)[i])) return false;
    }
    return true;
}

bool CVlSoapRootHandler::ReadField(const Element* element, const SoapField& field, SoapValue* value) const {
    *value = {};
    if (element == nullptr || element->isNull) return (field.flags & kSoapNullable) != 0;
    const bool isArray = (field.flags & kSoapArray) != 0;
    if (!isArray && field.userType == nullptr) return ParseValue(field.type, element->text, value);

    SoapValues members(isArray ? element->children.size() : field.userType->fields.size());
    if (isArray) {
        const SoapField item{field.name, field.type, field.flags & ~kSoapArray, field.userType};
        for (size_t i = 0; i < members.size(); ++i) {
            if (!ReadField(&element->children[i], item, &members[i])) return false;
        }
    } else if (!ReadFields(*element, field.userType->fields, 0, &members)) {
        return false;
    }
    *value = std::move(members);
    return true;
}

}  // namespace vlm
