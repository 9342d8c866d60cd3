// Reads a SOAP 1.2 answer into an operation's record.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "soap/soap_record.h"
#include "util/sax.h"

namespace vlm {

// Lets an element that nobody knows pass, with all it holds.
class CSkipHandler {
 public:
    bool IsSkipping() const { return depth_ > 0; }
    // An element begins: the one to skip, or one in it.
    void Start() { ++depth_; }
    void End() { --depth_; }

 private:
    size_t depth_ = 0;
};

// Puts the pieces together in which text arrives.
class CSAXStringBuilder {
 public:
    void Clear() { text_.clear(); }
    void Append(std::wstring_view piece) { text_ += piece; }
    const std::wstring& Text() const { return text_; }

 private:
    std::wstring text_;
};

// The answer is an Envelope with a Body, an optional Header before it, and in the Body an element that is
// named after the operation with "Response" behind it, in the service's namespace. Its children are the
// out-fields: by name, in no namespace or the service's, in any order, each once. All but the nullable ones
// have to be there. Header elements are matched with the operation's headers; one that is not known is passed
// over unless it must be understood.
//
// Anything else ends the parse with E_FAIL. The record is whole only after S_OK; fields that are not out are
// not touched.
class CVlSoapRootHandler : public SaxHandler {
 public:
    // `operation` and `record`, which has a value per field, must outlive the handler.
    CVlSoapRootHandler(const SoapOperation& operation, SoapValues* record);

 private:
    // An element whose children are values: the response itself, a user type, an array.
    struct Level {
        std::span<const SoapField> fields;
        SoapValues* values;
        unsigned needed = 0;     // flags that a field must have to count here
        std::vector<bool> seen;  // per field
        bool isArray = false;    // whatever its children are called, they are:
        SoapField item;
    };
    enum class State { kStart, kEnvelope, kHeader, kBody, kResponse, kAfterResponse };

    HRESULT OnStart(const XmlName& name, const XmlAttributes& attributes) override;
    HRESULT OnEnd(const XmlName& name) override;
    HRESULT OnText(std::wstring_view text) override;
    HRESULT OnDocumentEnd() override;

    HRESULT StartInEnvelope(const XmlName& name);
    HRESULT StartInHeader(const XmlName& name, const XmlAttributes& attributes);
    HRESULT StartInBody(const XmlName& name);
    HRESULT StartField(const XmlName& name, const XmlAttributes& attributes);
    HRESULT StartValue(const SoapField& field, SoapValue* value, const XmlAttributes& attributes);
    HRESULT EndLevel();

    const SoapOperation& operation_;
    std::wstring responseName_;
    SoapValues* record_;
    State state_ = State::kStart;
    bool headerSeen_ = false;
    bool bodySeen_ = false;
    bool responseSeen_ = false;
    CSkipHandler skip_;
    std::vector<Level> levels_;
    // The value whose text is being gathered.
    const SoapField* field_ = nullptr;
    SoapValue* value_ = nullptr;
    bool isNull_ = false;
    CSAXStringBuilder text_;
};

}  // namespace vlm
