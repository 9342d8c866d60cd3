#include "printer/wsd/wsd_service.h"

#include <utility>

#include "printer/soap/soap_message.h"
#include "printer/wsd/wsd_request.h"

namespace vlm::printer {
namespace {

constexpr std::size_t kShownBody = std::size_t{64} << 10;  // of a request, in the log

}  // namespace

void WsdService::Answer(const HttpRequest& http, HttpResponse& response, const char* scheme) {
    const WsdRequest request = ReadWsdRequest(http.Header("Content-Type"), http.body);

    nlohmann::json names = nlohmann::json::array();
    for (const ElementName& name : request.names)
        names.push_back(fmt::format("{{{}}}{}", name.uri, name.name));
    Log(http, scheme,
        {{"method", http.method},
         {"body", http.body.substr(0, kShownBody)},
         {"to", request.to},
         {"action", request.action},
         {"messageId", request.messageId},
         {"from", request.from},
         {"names", std::move(names)},
         {"findings", request.findings}});
    if (request.findings.empty())
        response.Set(WsdAnswer(request, machine_.State(), style.Get()), kSoapType);
    else
        AnswerFault("WSD request", request, response, request.messageId);
}

}  // namespace vlm::printer
