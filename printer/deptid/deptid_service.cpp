#include "printer/deptid/deptid_service.h"

#include "printer/deptid/deptid_request.h"
#include "printer/shared/say.h"
#include "printer/soap/soap_message.h"

namespace vlm::printer {
namespace {

std::string VerdictAnswer(bool allowed) {
    const Envelope envelope = NewEnvelope("soap");
    const XmlElement response = envelope.root.Add("Body", envelope.soap).Add("CheckUserPasswordResponse");
    xmlSetNs(response.Node(), response.Declare("m", ns::kDepartmentId));
    xmlSetNsProp(response.Node(), envelope.soap, ToXml("encodingStyle"), ToXml(ns::kSoap12Encoding));
    // Fields of an RPC message are in no namespace.
    xmlSetNs(response.Add("result", allowed ? "true" : "false").Node(), nullptr);
    return Serialize(envelope.document.get());
}

}  // namespace

void DeptIdService::Answer(const HttpRequest& http, HttpResponse& response, const char* scheme) {
    const DeptIdRequest request = ReadDeptIdRequest(http.Header("Content-Type"), http.body);
    const bool sound = request.findings.empty();
    const bool allowed = sound && accounts_.Allow(request.credentials);
    Log(http, scheme,
        {{"username", request.credentials.username},
         {"domain", request.credentials.domain},
         {"type", request.credentials.type},
         {"result", sound ? nlohmann::json(allowed) : nlohmann::json()},
         {"findings", request.findings}});
    if (!sound) return AnswerFault("department-ID request", request, response);
    Say("department-ID check: {}", allowed ? "allowed" : "refused");
    response.Set(VerdictAnswer(allowed), kSoapType);
}

}  // namespace vlm::printer
