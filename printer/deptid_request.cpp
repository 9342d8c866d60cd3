#include "deptid_request.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <utility>

#include "soap_message.h"

namespace vlm::printer {
namespace {

constexpr const char* kOperation = "CheckUserPassword";

struct Field {
    const char* name;
    std::string Credentials::*value;
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

class Reader {
 public:
    explicit Reader(DeptIdRequest& request) : request_(request) {}

    void ReadMessage(const std::string& body) {
        std::string reason;
        const XmlDocument document = ParseMessage(body, Privacy::kPrivate, &reason);
        if (!document) {
            request_.findings.push_back(reason);
            return;
        }
        const xmlNode* root = xmlDocGetRootElement(document.get());
        if (!IsElement(root, ns::kSoap12, "Envelope")) {
            request_.otherVersion = FromXml(root->name) == "Envelope";
            Find("the root is {} instead of the SOAP 1.2 Envelope", NameOf(root));
            return;
        }
        if (root->properties != nullptr) Find("the Envelope has an attribute");
        const xmlNode* soapBody = OnlyChild(root, ns::kSoap12, "Body");
        if (soapBody == nullptr) return;
        if (OnlyAttribute(soapBody, ns::kSoap12, "encodingStyle") != ns::kSoap12Encoding)
            Find("the Body must have one attribute, encodingStyle with {}", ns::kSoap12Encoding);
        const xmlNode* method = OnlyChild(soapBody, ns::kDepartmentId, kOperation);
        if (method == nullptr) return;
        if (method->properties != nullptr) Find("{} has an attribute", kOperation);
        ReadFields(method);
    }

 private:
    template <typename... Args>
    void Find(fmt::format_string<Args...> format, Args&&... args) {
        request_.findings.push_back(fmt::format(format, std::forward<Args>(args)...));
    }

    const xmlNode* OnlyChild(const xmlNode* parent, const char* uri, const char* name) {
        const auto children = Children(parent);
        if (HasTextBetween(parent)) Find("there is text in the {}", FromXml(parent->name));
        if (children.size() == 1 && IsElement(children[0], uri, name)) return children[0];
        Find("the {} must hold one {{{}}}{} and nothing else", FromXml(parent->name), uri, name);
        return nullptr;
    }

    void ReadFields(const xmlNode* method) {
        const auto fields = Children(method);
        if (HasTextBetween(method)) Find("there is text between the fields");
        for (std::size_t i = 0; i < kFields.size(); ++i) {
            if (i >= fields.size())
                Find("field {} is missing: {}", i + 1, kFields[i].name);
            else if (!IsField(fields[i], kFields[i]))
                Find("field {} is not {} without a namespace", i + 1, kFields[i].name);
        }
        if (fields.size() > kFields.size()) Find("{} fields instead of {}", fields.size(), kFields.size());
        for (const xmlNode* node : fields)
            for (const Field& field : kFields)
                if (IsField(node, field)) ReadField(node, field);
    }

    void ReadField(const xmlNode* node, const Field& field) {
        request_.credentials.*field.value = TextOf(node);
        if (!Children(node).empty()) Find("{} holds an element", field.name);
        if (node->properties == nullptr) return;
        const auto nil = OnlyAttribute(node, ns::kSchemaInstance, "nil");
        if (nil != "1" && nil != "true")
            Find("{} has an attribute other than xsi:nil", field.name);
        else if (node->children != nullptr)
            Find("{} is null, but not empty", field.name);
    }

    DeptIdRequest& request_;
};

}  // namespace

DeptIdRequest ReadDeptIdRequest(std::string_view contentType, const std::string& body) {
    DeptIdRequest request;
    if (auto flaw = FindContentTypeFlaw(contentType)) request.findings.push_back(*std::move(flaw));
    Reader(request).ReadMessage(body);
    return request;
}

}  // namespace vlm::printer
