#include "control_api.h"

#include <fmt/format.h>
#include <unistd.h>

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace vlm::printer {
namespace {

using nlohmann::json;

struct BadRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

json ParseObject(const std::string& body, std::initializer_list<std::string_view> allowed) {
    json object = json::parse(body, nullptr, false);
    if (!object.is_object()) throw BadRequest("the body is not a JSON object");
    for (const auto& [key, value] : object.items()) {
        bool known = false;
        for (const std::string_view name : allowed)
            known = known || key == name;
        if (!known) throw BadRequest(fmt::format("unknown member '{}'", key));
    }
    return object;
}

std::string TextMember(const json& object, const char* key, const char* fallback = nullptr) {
    const auto found = object.find(key);
    if (found == object.end() && fallback != nullptr) return fallback;
    if (found == object.end() || !found->is_string())
        throw BadRequest(fmt::format("'{}' must be a text", key));
    return found->get<std::string>();
}

std::optional<std::uint64_t> CountMember(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    if (!found->is_number_unsigned())
        throw BadRequest(fmt::format("'{}' must be a whole number from 0 up", key));
    return found->get<std::uint64_t>();
}

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

void Reply(httplib::Response& response, const json& body, int status = 200) {
    response.status = status;
    // The texts come from outside (a folder's name, an answer): what is not UTF-8 is replaced, not thrown at.
    response.set_content(body.dump(2, ' ', false, json::error_handler_t::replace) + "\n", "application/json");
}

}  // namespace

void AddControlApi(HttpListener& http, RawPort& rawPort, const DocumentStore& store,
                   std::function<void()> shutdown) {
    using httplib::Request;
    using httplib::Response;
    httplib::Server& routes = http.Routes();

    const auto state = [&http, &rawPort] {
        const auto fault = rawPort.CurrentFault();
        return json{{"pid", ::getpid()},
                    {"rawPort", rawPort.Port()},
                    {"controlPort", http.Port()},
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
