#include "printer/net/http_server.h"

#include <optional>

namespace vlm::printer {

HttpServer::Exchange HttpServer::Answer(Channel& channel) {
    if (!channel.Handshake()) return {};
    std::optional<ReceivedRequest> received = ReceiveRequest(channel, bodyLimit_);
    if (!received) return {};
    const HttpRequest& request = received->request;
    HttpResponse response;
    if (received->refusal != 0)
        response.status = received->refusal;
    else if (!request.Header("Content-Encoding").empty())
        response.status = 415;  // a body is never unpacked: it could have any size then
    else
        Dispatch(request, response);
    if (response.status >= 400 && response.body.empty() && sayRefusal_) sayRefusal_(request, response);
    return {request.path, HttpText(response)};
}

void HttpServer::Serve(Channel& channel) {
    const Exchange exchange = Answer(channel);
    if (channel.Write(exchange.answer)) channel.End(true);
}

void HttpServer::Dispatch(const HttpRequest& request, HttpResponse& response) const {
    const auto route = routes_.find({request.method, request.path});
    if (route == routes_.end()) {
        response.status = 404;
        return;
    }
    try {
        route->second(request, response);
    } catch (...) {
        if (!sayFailure_) throw;
        sayFailure_(std::current_exception(), response);
    }
}

}  // namespace vlm::printer
