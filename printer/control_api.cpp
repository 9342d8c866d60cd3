#include "control_api.h"

#include <fmt/format.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "control_json.h"
#include "wsd_control.h"

namespace vlm::printer {
namespace {

using nlohmann::json;

Fault ParseFault(const std::string& body) {
    const json object = ParseObject(body, {"mode", "after", "rate", "connections"});
    const auto mode = ParseFaultMode(TextMember(object, "mode"));
    if (!mode) throw BadRequest("'mode' must be refuse, stall, slow or reset");
    const Fault fault{*mode, CountMember(object, "after").value_or(0),
                      CountMember(object, "rate").value_or(0), CountMember(object, "connections")};
    if (const auto flaw = FindFlaw(fault)) throw BadRequest(*flaw);
    return fault;
}

Answer ParseAnswer(const std::string& body) {
    const json object = ParseObject(body, {"text", "when"});
    const auto when = ParseAnswerTime(TextMember(object, "when", "document"));
    if (!when) throw BadRequest("'when' must be open or document");
    return {TextMember(object, "text"), *when};
}

json ToJson(const std::optional<Fault>& fault) {
    if (!fault) return nullptr;
    json object{{"mode", ToString(fault->mode)}, {"after", fault->after}};
    if (fault->mode == FaultMode::kSlow) object["rate"] = fault->rate;
    if (fault->connections) object["connections"] = *fault->connections;
    return object;
}

json ToJson(const Answer& answer) {
    if (answer.text.empty()) return nullptr;
    return {{"text", answer.text}, {"when", ToString(answer.when)}};
}

json ToJson(const DocumentRecord& record) {
    return {{"number", record.number},
            {"bytes", record.bytes},
            {"sha256", record.sha256},
            {"complete", record.end == DocumentEnd::kComplete},
            {"end", ToString(record.end)},
            {"file", record.file.string()},
            {"milliseconds", record.milliseconds}};
}

}  // namespace

void AddControlApi(HttpListener& http, RawPort& rawPort, WsdService& wsd, Machine& machine,
                   const DocumentStore& store, std::function<void()> shutdown) {
    using httplib::Request;
    using httplib::Response;
    httplib::Server& routes = http.Routes();

    AddWsdControl(routes, wsd, machine);

    const auto state = [&http, &rawPort, &wsd] {
        const auto fault = rawPort.CurrentFault();
        return json{{"pid", ::getpid()},
                    {"rawPort", rawPort.Port()},
                    {"controlPort", http.Port()},
                    {"wsdPort", wsd.Port()},
                    {"wsdsPort", wsd.TlsPort()},
                    {"refusing", fault && fault->mode == FaultMode::kRefuse},
                    {"openConnections", rawPort.OpenConnections()},
                    {"fault", ToJson(fault)},
                    {"answer", ToJson(rawPort.CurrentAnswer())}};
    };

    routes.Get("/state", [state](const Request&, Response& response) { Reply(response, state()); });
    routes.Get("/documents", [&store](const Request&, Response& response) {
        json all = json::array();
        for (const DocumentRecord& record : store.Records())
            all.push_back(ToJson(record));
        Reply(response, all);
    });
    routes.Put("/fault", [state, &rawPort](const Request& request, Response& response) {
        rawPort.SetFault(ParseFault(request.body));
        Reply(response, state());
    });
    routes.Delete("/fault", [state, &rawPort](const Request&, Response& response) {
        rawPort.ClearFault();
        Reply(response, state());
    });
    routes.Put("/answer", [state, &rawPort](const Request& request, Response& response) {
        rawPort.SetAnswer(ParseAnswer(request.body));
        Reply(response, state());
    });
    routes.Delete("/answer", [state, &rawPort](const Request&, Response& response) {
        rawPort.SetAnswer({});
        Reply(response, state());
    });
    // With a content reader, which it does not use: otherwise the library waits for a body that a client
    // without a Content-Length does not send.
    routes.Post("/shutdown", [shutdown = std::move(shutdown)](const Request&, Response& response,
                                                              const httplib::ContentReader&) {
        Reply(response, json{{"stopping", true}});
        shutdown();
    });

    routes.set_exception_handler([](const Request&, Response& response, std::exception_ptr failure) {
        try {
            std::rethrow_exception(std::move(failure));
        } catch (const BadRequest& e) {
            Reply(response, json{{"error", e.what()}}, 400);
        } catch (const std::exception& e) {
            Reply(response, json{{"error", e.what()}}, 500);
        }
    });
    routes.set_error_handler([](const Request& request, Response& response) {
        if (!response.body.empty()) return;
        const char* reason = response.status == 404 ? "there is no" : "cannot read the request";
        Reply(response, json{{"error", fmt::format("{} {} {}", reason, request.method, request.path)}},
              response.status);
    });
}

}  // namespace vlm::printer
