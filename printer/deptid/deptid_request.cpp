#include "printer/deptid/deptid_request.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <utility>

#include "printer/soap/soap_message.h"

namespace vlm::printer {
namespace {

constexpr const char* kOperation = "CheckUserPassword";

using Value = std::string Credentials::*;
struct Field {
    const char* name;
    Value value;
};
constexpr std::array kFields{Field{"username", &Credentials::username}, Field{"domain", &Credentials::domain},
                             Field{"type", &Credentials::type}, Field{"password", &Credentials::password}};

bool IsField(const xmlNode* node, const Field& field) {
    return node->ns == nullptr && FromXml(node->name) == field.name;
}

bool HasTextBetween(const xmlNode* parent) {
    for (const xmlNode* node = parent->children; node != nullptr; node = node->next)
        if ((node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) &&
            !Trimmed(TextOf(node)).empty())
            return true;
    return false;
}

// The value of the only attribute that an element may have.
std::optional<std::string> OnlyAttribute(const xmlNode* node, const char* uri, const char* name) {
    const xmlAttr* attribute = node->properties;
    if (attribute == nullptr || attribute->next != nullptr || attribute->ns == nullptr ||
        FromXml(attribute->ns->href) != uri || FromXml(attribute->name) != name)
        return std::nullopt;
    return TextOf(attribute->children);
}

class DeptIdReader {
 public:
    explicit DeptIdReader(DeptIdRequest& request) : request_(request) {}

    void ReadMessage(const xmlNode* root) {
        if (root->properties != nullptr) request_.Find("the Envelope has an attribute");
        const xmlNode* soapBody = OnlyChild(root, ns::kSoap12, "Body");
        if (soapBody == nullptr) return;
        if (OnlyAttribute(soapBody, ns::kSoap12, "encodingStyle") != ns::kSoap12Encoding)
            request_.Find("the Body must have one attribute, encodingStyle with {}", ns::kSoap12Encoding);
        const xmlNode* method = OnlyChild(soapBody, ns::kDepartmentId, kOperation);
        if (method == nullptr) return;
        if (method->properties != nullptr) request_.Find("{} has an attribute", kOperation);
        ReadFields(method);
    }

 private:
    const xmlNode* OnlyChild(const xmlNode* parent, const char* uri, const char* name) {
        const auto children = Children(parent);
        if (HasTextBetween(parent)) request_.Find("there is text in the {}", FromXml(parent->name));
        if (children.size() == 1 && IsElement(children[0], uri, name)) return children[0];
        request_.Find("the {} must hold one {{{}}}{} and nothing else", FromXml(parent->name), uri, name);
        return nullptr;
    }

    void ReadFields(const xmlNode* method) {
        const auto fields = Children(method);
        if (HasTextBetween(method)) request_.Find("there is text between the fields");
        for (std::size_t i = 0; i < kFields.size(); ++i) {
            if (i >= fields.size())
                request_.Find("field {} is missing: {}", i + 1, kFields[i].name);
            else if (!IsField(fields[i], kFields[i]))
                request_.Find("field {} is not {} without a namespace", i + 1, kFields[i].name);
        }
        if (fields.size() > kFields.size())
            request_.Find("{} fields instead of {}", fields.size(), kFields.size());
        for (const xmlNode* node : fields)
            for (const Field& field : kFields)
                if (IsField(node, field)) ReadField(node, field);
    }

    void ReadField(const xmlNode* node, const Field& field) {
        request_.credentials.*field.value = TextOf(node);
        if (!Children(node).empty()) request_.Find("{} holds an element", field.name);
        if (node->properties == nullptr) return;
        const auto nil = OnlyAttribute(node, ns::kSchemaInstance, "nil");
        if (nil != "1" && nil != "true")
            request_.Find("{} has an attribute other than xsi:nil", field.name);
        else if (node->children != nullptr)
            request_.Find("{} is null, but not empty", field.name);
    }

    DeptIdRequest& request_;
};

}  // namespace

DeptIdRequest ReadDeptIdRequest(std::string_view contentType, const std::string& body) {
    DeptIdRequest request;
    const XmlDocument document = ReadEnvelope(contentType, body, Privacy::kPrivate, request);
    if (document) DeptIdReader(request).ReadMessage(xmlDocGetRootElement(document.get()));
    return request;
}

}  // namespace vlm::printer
