// Reads a SOAP 1.2 answer into an operation's record.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "soap/soap_record.h"
#include "util/sax.h"

namespace vlm {

// The answer is an Envelope with a Body, an optional Header before it, and in the Body an element that is
// named after the operation with "Response" behind it, in the service's namespace. Its children are the
// out-fields: by name, in no namespace or the service's, in any order, each once. All but the nullable ones
// must be there; other elements are skipped. A header element that the operation does not know is skipped
// unless it must be understood.
//
// Anything else ends the parse with E_FAIL. The record is whole only after S_OK; fields that are not out are
// not touched.
class CVlSoapRootHandler : public SaxHandler {
 public:
    // `operation` and `record`, which has a value per field, must outlive the handler.
    CVlSoapRootHandler(const SoapOperation& operation, SoapValues* record)
        : operation_(operation), record_(record) {}

 private:
    struct Element {
        std::wstring uri;
        std::wstring local;
        bool isNull = false;  // xsi:nil
        bool mustUnderstand = false;
        std::wstring text;  // its own
        std::vector<Element> children;
    };

    HRESULT OnStart(const XmlName& name, const XmlAttributes& attributes) override;
    HRESULT OnEnd(const XmlName& name) override;
    HRESULT OnText(std::wstring_view text) override;
    HRESULT OnDocumentEnd() override;

    bool ReadEnvelope(const Element& envelope) const;
    bool Understands(const Element& header) const;
    bool ReadFields(const Element& parent, std::span<const SoapField> fields, unsigned neededFlags,
                    SoapValues* values) const;
    // A null `element` is one that is not there.
    bool ReadField(const Element* element, const SoapField& field, SoapValue* value) const;

    const SoapOperation& operation_;
    SoapValues* record_;
    // The document, which is no element, and in it the elements that are open. What it all may add up to is
    // bounded before the parser begins.
    std::vector<Element> open_{1};
};

}  // namespace vlm
