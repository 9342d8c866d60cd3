#include "soap/soap_root_handler.h"

#include <algorithm>
#include <utility>

#include "soap/namespaces.h"

namespace vlm {

namespace {

bool IsTrue(std::wstring_view text) {
    SoapValue value;
    return ParseValue(XsdType::kBoolean, text, &value) && std::get<bool>(value);
}

bool HasTrue(const XmlAttributes& attributes, std::wstring_view uri, std::wstring_view local) {
    return std::any_of(attributes.begin(), attributes.end(), [&](const XmlAttribute& attribute) {
        return attribute.name.uri == uri && attribute.name.local == local && IsTrue(attribute.value);
    });
}

const SoapField* FindField(std::span<const SoapField> fields, std::wstring_view name) {
    const std::uint32_t hash = HashOfName(name);
    const auto same = [&](const SoapField& field) { return field.hash == hash && field.name == name; };
    const auto found = std::find_if(fields.begin(), fields.end(), same);
    return found == fields.end() ? nullptr : &*found;
}

}  // namespace

CVlSoapRootHandler::CVlSoapRootHandler(const SoapOperation& operation, SoapValues* record)
    : operation_(operation), responseName_(std::wstring(operation.name) + L"Response"), record_(record) {}

HRESULT CVlSoapRootHandler::OnStart(const XmlName& name, const XmlAttributes& attributes) {
    if (skip_.IsSkipping()) {
        skip_.Start();
        return S_OK;
    }
    switch (state_) {
        case State::kStart:
            if (name.uri != ns::kSoap12 || name.local != L"Envelope") return E_FAIL;
            state_ = State::kEnvelope;
            return S_OK;
        case State::kEnvelope:
            return StartInEnvelope(name);
        case State::kHeader:
            return StartInHeader(name, attributes);
        case State::kBody:
            return StartInBody(name);
        case State::kResponse:
            return StartField(name, attributes);
        case State::kAfterResponse:
            break;
    }
    skip_.Start();
    return S_OK;
}

HRESULT CVlSoapRootHandler::StartInEnvelope(const XmlName& name) {
    if (name.uri != ns::kSoap12 || bodySeen_) return E_FAIL;
    if (name.local == L"Header" && !headerSeen_) {
        state_ = State::kHeader;
        headerSeen_ = true;
    } else if (name.local == L"Body") {
        state_ = State::kBody;
        bodySeen_ = true;
    } else {
        return E_FAIL;
    }
    return S_OK;
}

HRESULT CVlSoapRootHandler::StartInHeader(const XmlName& name, const XmlAttributes& attributes) {
    const bool known = name.uri == operation_.uri && FindField(operation_.headers, name.local) != nullptr;
    if (!known && HasTrue(attributes, ns::kSoap12, L"mustUnderstand")) return E_FAIL;
    // Nothing here takes a header's value.
    skip_.Start();
    return S_OK;
}

HRESULT CVlSoapRootHandler::StartInBody(const XmlName& name) {
    if (name.uri != operation_.uri || name.local != responseName_) return E_FAIL;
    state_ = State::kResponse;
    responseSeen_ = true;
    const auto fields = operation_.fields;
    levels_.push_back({fields, record_, kSoapOut, std::vector<bool>(fields.size()), false, {}});
    return S_OK;
}

HRESULT CVlSoapRootHandler::StartField(const XmlName& name, const XmlAttributes& attributes) {
    if (value_ != nullptr) {  // an element in a plain value
        skip_.Start();
        return S_OK;
    }
    Level& level = levels_.back();
    if (level.isArray) {
        level.values->emplace_back();
        return StartValue(level.item, &level.values->back(), attributes);
    }
    const bool mayBeField = name.uri.empty() || name.uri == operation_.uri;
    const SoapField* const field = mayBeField ? FindField(level.fields, name.local) : nullptr;
    if (field == nullptr || (field->flags & level.needed) != level.needed) {
        skip_.Start();
        return S_OK;
    }
    const auto index = static_cast<size_t>(field - level.fields.data());
    if (level.seen[index]) return E_FAIL;
    level.seen[index] = true;
    return StartValue(*field, &(*level.values)[index], attributes);
}

HRESULT CVlSoapRootHandler::StartValue(const SoapField& field, SoapValue* value,
                                       const XmlAttributes& attributes) {
    isNull_ = HasTrue(attributes, ns::kSchemaInstance, L"nil");
    if (isNull_ && (field.flags & kSoapNullable) == 0) return E_FAIL;
    const bool isArray = (field.flags & kSoapArray) != 0;
    if (isNull_ || (!isArray && field.userType == nullptr)) {
        field_ = &field;
        value_ = value;
        text_.Clear();
        return S_OK;
    }
    *value = SoapValue(SoapValues());
    SoapValues* const members = &std::get<SoapValues>(*value);
    if (isArray) {
        const SoapField item{field.name, field.type, field.flags & ~unsigned{kSoapArray}, field.userType};
        levels_.push_back({{}, members, 0, {}, true, item});
    } else {
        const auto fields = field.userType->fields;
        members->resize(fields.size());
        levels_.push_back({fields, members, 0, std::vector<bool>(fields.size()), false, {}});
    }
    return S_OK;
}

HRESULT CVlSoapRootHandler::OnText(std::wstring_view text) {
    if (value_ != nullptr && !skip_.IsSkipping()) text_.Append(text);
    return S_OK;
}

HRESULT CVlSoapRootHandler::OnEnd(const XmlName&) {
    if (skip_.IsSkipping()) {
        skip_.End();
        return S_OK;
    }
    if (value_ != nullptr) {
        SoapValue* const value = std::exchange(value_, nullptr);
        if (isNull_) {
            *value = SoapValue();
            return S_OK;
        }
        return ParseValue(field_->type, text_.Text(), value) ? S_OK : E_FAIL;
    }
    if (!levels_.empty()) return EndLevel();
    // The end of the Header, the Body or the Envelope.
    state_ = State::kEnvelope;
    return S_OK;
}

// Whatever was not there has to be one that may be null.
HRESULT CVlSoapRootHandler::EndLevel() {
    const Level& level = levels_.back();
    for (size_t i = 0; i < level.seen.size(); ++i) {
        const SoapField& field = level.fields[i];
        if (level.seen[i] || (field.flags & level.needed) != level.needed) continue;
        if ((field.flags & kSoapNullable) == 0) return E_FAIL;
        (*level.values)[i] = SoapValue();
    }
    levels_.pop_back();
    if (levels_.empty()) state_ = State::kAfterResponse;
    return S_OK;
}

HRESULT CVlSoapRootHandler::OnDocumentEnd() {
    return responseSeen_ ? S_OK : E_FAIL;
}

}  // namespace vlm
