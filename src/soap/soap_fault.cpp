#include "soap/soap_fault.h"

#include "util/namespaces.h"
#include "util/xml_names.h"

namespace vlm {

namespace {

constexpr int kFaultStep = 3;
constexpr struct {
    std::wstring_view name;
    int step;
} kStructure[] = {{L"Envelope", 1}, {L"Body", 2}, {L"Header", 2}, {L"Fault", kFaultStep}};

constexpr struct {
    std::wstring_view name;
    std::wstring SoapFault::*text;
} kParts[] = {{L"faultcode", &SoapFault::code},
              {L"faultstring", &SoapFault::string},
              {L"faultactor", &SoapFault::actor},
              {L"detail", &SoapFault::detail}};

constexpr struct {
    std::wstring_view code;
    const wchar_t* text;
} kMeanings[] = {{L"VersionMismatch", L"SOAP Version Mismatch Error"},
                 {L"MustUnderstand", L"SOAP Must Understand Error"},
                 {L"Client", L"SOAP Invalid Request"},
                 {L"Server", L"SOAP Server Application Faulted"}};

}  // namespace

const wchar_t* SoapFaultMeaning(std::wstring_view code) {
    for (const auto& meaning : kMeanings) {
        if (meaning.code == code) return meaning.text;
    }
    return nullptr;
}

HRESULT CSoapFaultParser::OnPrefix(std::wstring_view prefix, std::wstring_view uri) {
    if (uri == ns::kSoap11 && !prefix.empty()) prefix_ = prefix;
    return S_OK;
}

HRESULT CSoapFaultParser::OnStart(const XmlName& name, const XmlAttributes&) {
    ++depth_;
    if (name.uri == ns::kSoap11) {
        for (const auto& structure : kStructure) {
            if (structure.name != name.local) continue;
            if (structure.step != step_ + 1) return E_FAIL;
            step_ = structure.step;
            if (step_ == kFaultStep) faultDepth_ = depth_;
            return S_OK;
        }
    }
    if (step_ != kFaultStep) return E_FAIL;
    if (depth_ != faultDepth_ + 1) return S_OK;
    for (const auto& part : kParts) {
        if (part.name != name.local) continue;
        target_ = &(fault_->*part.text);
        target_->clear();
    }
    return S_OK;
}

HRESULT CSoapFaultParser::OnEnd(const XmlName&) {
    if (depth_ == faultDepth_) faultDepth_ = 0;  // what follows the fault is not in it
    if (depth_ == faultDepth_ + 1 && target_ != nullptr) {
        *target_ = std::wstring(TrimXmlSpace(*target_));
        if (target_ == &fault_->code && !prefix_.empty() && target_->starts_with(prefix_ + L":")) {
            target_->erase(0, prefix_.size() + 1);
        }
        target_ = nullptr;
    }
    --depth_;
    return S_OK;
}

HRESULT CSoapFaultParser::OnText(std::wstring_view text) {
    if (target_ != nullptr) *target_ += text;
    return S_OK;
}

HRESULT CSoapFaultParser::OnDocumentEnd() {
    return step_ == kFaultStep ? S_OK : E_FAIL;
}

}  // namespace vlm
