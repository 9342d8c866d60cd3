// A printer's cleaned answer as a document: its elements by name, and its text for a person.
//
// COM must be initialised on the thread, and the object stays on it.
#pragma once

#include <string>
#include <vector>

#include "tools/vlmctl/console/table.h"
#include "util/vlxml.h"

namespace vlm::ctl {

class ElementDocument {
 public:
    // Throws CommandError, naming the address, when the cleaned answer is none of a print service: a fault,
    // or any other message.
    ElementDocument(const std::string& url, const std::string& cleaned);

    // The ElementData parts, in their order.
    const std::vector<ComPtr<IXMLDOMNode>>& Parts() const { return parts_; }
    // The whole envelope.
    ComPtr<IXMLDOMNode> Envelope() const { return ComPtr<IXMLDOMNode>(document_.Root().Get()); }
    // What its root declares: all namespaces of the document.
    const NamespaceDeclarations& Declarations() const { return declarations_; }

 private:
    CXMLDoc document_;
    std::vector<ComPtr<IXMLDOMNode>> parts_;
    NamespaceDeclarations declarations_;
};

// The names of the parts.
struct PartNames {
    std::vector<std::string> valid;
    std::vector<std::string> invalid;  // that the printer says it could not fill, such as unknown ones
};
PartNames NamesOf(const ElementDocument& document);

// One element with all below it, indented, in UTF-8, a line each, ending in a line feed. What could steer a
// terminal stands in it as a character reference. `declarations` are shown on the element itself.
std::string Indented(IXMLDOMNode* element, const NamespaceDeclarations& declarations = {});

// The same as data: name, attributes by name, the text in it without white space at its ends, the elements in
// it.
Json ElementJson(IXMLDOMNode* element);

DOMNodeType TypeOf(IXMLDOMNode* node);
// The text at an XPath expression relative to `node`, where "pri" is the print service's prefix; printable
// UTF-8 without white space at its ends, empty when nothing matches.
std::string TextAt(IXMLDOMNode* node, const wchar_t* xpath);
// The same for an attribute of `node`, which printers write with the print service's prefix or without.
std::string AttributeAt(IXMLDOMNode* node, const std::wstring& name);
// All matches, in document order.
std::vector<ComPtr<IXMLDOMNode>> NodesAt(IXMLDOMNode* node, const wchar_t* xpath);

}  // namespace vlm::ctl
