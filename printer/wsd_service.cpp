#include "wsd_service.h"

#include "say.h"
#include "soap_message.h"
#include "wsd_request.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kShownBody = std::size_t{64} << 10;  // of a request, in the log

}  // namespace

void WsdService::AddTo(SoapPorts& ports) {
    ports.Serve(kWsdPath, [this](const httplib::Request& request, httplib::Response& response,
                                 const char* scheme) { Answer(request, response, scheme); });
}

void WsdService::Answer(const httplib::Request& http, httplib::Response& response, const char* scheme) {
    const WsdRequest request = ReadWsdRequest(http.get_header_value("Content-Type"), http.body);

    nlohmann::json names = nlohmann::json::array();
    for (const ElementName& name : request.names)
        names.push_back(fmt::format("{{{}}}{}", name.uri, name.name));
    log_.Add({{"scheme", scheme},
              {"method", http.method},
              {"path", http.path},
              {"version", http.version},
              {"headers", ShownHeaders(http)},
              {"body", http.body.substr(0, kShownBody)},
              {"to", request.to},
              {"action", request.action},
              {"messageId", request.messageId},
              {"from", request.from},
              {"names", std::move(names)},
              {"findings", request.findings}});

    if (request.findings.empty()) {
        response.set_content(WsdAnswer(request, machine_.State(), behaviour_.Style()), kSoapType);
        return;
    }
    std::string reason;
    for (const std::string& finding : request.findings)
        reason += reason.empty() ? finding : "; " + finding;
    Say("WSD request refused: {}", reason);
    // As the SOAP 1.2 HTTP binding maps its codes.
    response.status = request.otherVersion ? 500 : 400;
    const char* code = request.otherVersion ? "VersionMismatch" : "Sender";
    response.set_content(WsdFaultAnswer(code, reason, request.messageId), kSoapType);
}

}  // namespace vlm::printer
