// Owners and helpers for libxml2. Names and texts are UTF-8.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <string>

namespace vlm::printer {

namespace ns {
inline constexpr const char* kSoap12 = "http://www.w3.org/2003/05/soap-envelope";
inline constexpr const char* kAddressing = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr const char* kAnonymous = "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";
inline constexpr const char* kPrint = "http://schemas.microsoft.com/windows/2006/08/wdp/print";
inline constexpr const char* kVendor = "http://velun.example/wsd/print/2026";
inline constexpr const char* kSoap12Encoding = "http://www.w3.org/2003/05/soap-encoding";
inline constexpr const char* kSchemaInstance = "http://www.w3.org/2001/XMLSchema-instance";
inline constexpr const char* kDepartmentId = "http://velun.example/ns/active/deptid";
}  // namespace ns

struct FreeXml {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
    void operator()(xmlChar* text) const { xmlFree(text); }
};
using XmlDocument = std::unique_ptr<xmlDoc, FreeXml>;
using XmlContext = std::unique_ptr<xmlParserCtxt, FreeXml>;
using XmlText = std::unique_ptr<xmlChar, FreeXml>;

inline const xmlChar* ToXml(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}
inline std::string FromXml(const xmlChar* text) {
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

inline bool IsElement(const xmlNode* node, const char* uri, const char* name) {
    return node != nullptr && node->type == XML_ELEMENT_NODE && FromXml(node->name) == name &&
           node->ns != nullptr && FromXml(node->ns->href) == uri;
}

// An element that is being filled. Children are in their parent's namespace unless another one is given.
class XmlElement {
 public:
    explicit XmlElement(xmlNode* node) : node_(node) {}

    xmlNode* Node() const { return node_; }
    xmlNs* Declare(const char* prefix, const char* uri) const {  // an empty prefix: the default namespace
        return xmlNewNs(node_, ToXml(uri), *prefix != '\0' ? ToXml(prefix) : nullptr);
    }
    XmlElement Add(const char* name, xmlNs* space = nullptr) const {
        return XmlElement(xmlNewChild(node_, space, ToXml(name), nullptr));
    }
    XmlElement Add(const char* name, const std::string& text, xmlNs* space = nullptr) const {
        return XmlElement(xmlNewTextChild(node_, space, ToXml(name), ToXml(text.c_str())));
    }
    XmlElement Attribute(const char* name, const std::string& value) const {
        xmlNewProp(node_, ToXml(name), ToXml(value.c_str()));
        return *this;
    }
    XmlElement Language(const char* language) const {
        xmlNodeSetLang(node_, ToXml(language));
        return *this;
    }

 private:
    xmlNode* node_;
};

inline std::string Serialize(xmlDoc* document) {
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(document, &text, &size, "utf-8");
    const XmlText owner(text);
    return text != nullptr ? std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(size)) : "";
}

}  // namespace vlm::printer
