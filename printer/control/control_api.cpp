#include "printer/control/control_api.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <chrono>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "printer/control/control_json.h"
#include "printer/control/wsd_control.h"

namespace vlm::printer {
namespace {

using nlohmann::json;

Fault ParseFault(const std::string& body) {
    const json object = ParseObject(body, {"mode", "after", "rate", "connections"});
    const auto mode = ValueIn(kFaultModes, TextMember(object, "mode"));
    if (!mode) throw BadRequest("'mode' must be refuse, stall, slow or reset");
    const Fault fault{*mode, CountMember(object, "after").value_or(0),
                      CountMember(object, "rate").value_or(0), CountMember(object, "connections")};
    if (const auto flaw = FindFlaw(fault)) throw BadRequest(*flaw);
    return fault;
}

Answer ParseAnswer(const std::string& body) {
    const json object = ParseObject(body, {"text", "when"});
    const auto when = ValueIn(kAnswerTimes, TextMember(object, "when", "document"));
    if (!when) throw BadRequest("'when' must be open or document");
    return {TextMember(object, "text"), *when};
}

// Bytes as pairs of hexadecimal digits, with or without spaces between the pairs.
Bytes HexMember(const json& object, const char* key) {
    std::string digits;
    for (const char c : TextMember(object, key))
        if (c != ' ' || digits.size() % 2 != 0) digits += c;
    if (digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw BadRequest(fmt::format("'{}' must be pairs of hex digits", key));
    Bytes bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    return bytes;
}

std::string ToHex(const Bytes& bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

template <typename Value>
std::optional<Value> NumberMember(const json& object, const char* key) {
    const auto number = CountMember(object, key);
    if (number && *number > std::numeric_limits<Value>::max())
        throw BadRequest(fmt::format("'{}' must be at most {}", key, std::numeric_limits<Value>::max()));
    return number ? std::optional(static_cast<Value>(*number)) : std::nullopt;
}

VpcaFault ParseVpcaFault(const std::string& body) {
    constexpr std::uint64_t kMostDelay = 600'000;
    const json object = ParseObject(body, {"status", "operation", "sequence", "length", "id", "reply",
                                           "truncate", "delay", "close", "requests"});
    VpcaFault fault;
    fault.status = NumberMember<std::uint16_t>(object, "status");
    fault.operation = NumberMember<std::uint16_t>(object, "operation");
    fault.sequence = NumberMember<std::uint16_t>(object, "sequence");
    fault.length = NumberMember<std::uint16_t>(object, "length");
    fault.id = NumberMember<std::uint32_t>(object, "id");
    if (object.contains("reply")) fault.reply = HexMember(object, "reply");
    fault.truncate = CountMember(object, "truncate");
    const std::uint64_t delay = CountMember(object, "delay").value_or(0);
    if (delay > kMostDelay) throw BadRequest("'delay' is in milliseconds and at most ten minutes");
    fault.delay = std::chrono::milliseconds(delay);
    if (const auto close = object.find("close"); close != object.end()) {
        if (!close->is_boolean()) throw BadRequest("'close' must be true or false");
        fault.close = close->get<bool>();
    }
    fault.requests = CountMember(object, "requests");
    if (fault.requests && *fault.requests == 0) throw BadRequest("'requests' must be at least 1");
    if (object.size() == object.count("requests")) throw BadRequest("the fault changes nothing");
    return fault;
}

json ToJson(const std::optional<VpcaFault>& fault) {
    if (!fault) return nullptr;
    json object = json::object();
    const auto add = [&object](const char* key, const auto& value) {
        if (value) object[key] = *value;
    };
    add("status", fault->status);
    add("operation", fault->operation);
    add("sequence", fault->sequence);
    add("length", fault->length);
    add("id", fault->id);
    if (fault->reply) object["reply"] = ToHex(*fault->reply);
    add("truncate", fault->truncate);
    if (fault->delay.count() > 0) object["delay"] = fault->delay.count();
    if (fault->close) object["close"] = true;
    add("requests", fault->requests);
    return object;
}

json ToJson(const std::optional<Fault>& fault) {
    if (!fault) return nullptr;
    json object{{"mode", NameIn(kFaultModes, fault->mode)}, {"after", fault->after}};
    if (fault->mode == FaultMode::kSlow) object["rate"] = fault->rate;
    if (fault->connections) object["connections"] = *fault->connections;
    return object;
}

json ToJson(const Answer& answer) {
    if (answer.text.empty()) return nullptr;
    return {{"text", answer.text}, {"when", NameIn(kAnswerTimes, answer.when)}};
}

json ToJson(const DocumentRecord& record) {
    return {{"number", record.number},
            {"bytes", record.bytes},
            {"sha256", record.sha256},
            {"complete", record.end == DocumentEnd::kComplete},
            {"end", NameIn(kDocumentEnds, record.end)},
            {"file", record.file.string()},
            {"milliseconds", record.milliseconds}};
}

}  // namespace

void AddControlApi(HttpListener& http, RawPort& rawPort, SoapPorts& soap, WsdService& wsd,
                   DeptIdService& deptId, Machine& machine, const DocumentStore& store,
                   std::function<void()> shutdown) {
    HttpServer& server = http.Server();

    AddWsdControl(server, soap.Faults(), wsd, machine);

    const auto state = [&http, &rawPort, &soap] {
        const auto fault = rawPort.CurrentFault();
        return json{{"pid", ::getpid()},
                    {"rawPort", rawPort.Port()},
                    {"controlPort", http.Port()},
                    {"wsdPort", soap.Port()},
                    {"wsdsPort", soap.TlsPort()},
                    {"refusing", fault && fault->mode == FaultMode::kRefuse},
                    {"openConnections", rawPort.OpenConnections()},
                    {"fault", ToJson(fault)},
                    {"answer", ToJson(rawPort.CurrentAnswer())},
                    {"vpcaFault", ToJson(rawPort.Device().CurrentFault())}};
    };

    AddGet(server, "/state", state);
    AddGet(server, "/documents", [&store] {
        json all = json::array();
        for (const DocumentRecord& record : store.Records())
            all.push_back(ToJson(record));
        return all;
    });
    AddSetting(
        server, "/fault", [&rawPort](const std::string& body) { rawPort.SetFault(ParseFault(body)); },
        [&rawPort] { rawPort.ClearFault(); }, state);
    AddSetting(
        server, "/answer", [&rawPort](const std::string& body) { rawPort.SetAnswer(ParseAnswer(body)); },
        [&rawPort] { rawPort.SetAnswer({}); }, state);
    AddSetting(
        server, "/vpca/fault",
        [&rawPort](const std::string& body) { rawPort.Device().SetFault(ParseVpcaFault(body)); },
        [&rawPort] { rawPort.Device().ClearFault(); }, state);
    AddGet(server, "/vpca/requests", [&rawPort] {
        json all = json::array();
        for (const Bytes& frame : rawPort.Device().Requests())
            all.push_back(ToHex(frame));
        return all;
    });
    AddRequests(server, "/deptid/requests", deptId.Requests(), [] { return json::array(); });
    server.Route("POST", "/shutdown",
                 [shutdown = std::move(shutdown)](const HttpRequest&, HttpResponse& response) {
                     Reply(response, json{{"stopping", true}});
                     shutdown();
                 });

    server.OnFailure([](std::exception_ptr failure, HttpResponse& response) {
        try {
            std::rethrow_exception(std::move(failure));
        } catch (const BadRequest& e) {
            Reply(response, json{{"error", e.what()}}, 400);
        } catch (const std::exception& e) {
            Reply(response, json{{"error", e.what()}}, 500);
        }
    });
    server.OnRefusal([](const HttpRequest& request, HttpResponse& response) {
        const char* reason = response.status == 404 ? "there is no" : "cannot read the request";
        Reply(response, json{{"error", fmt::format("{} {} {}", reason, request.method, request.path)}},
              response.status);
    });
}

}  // namespace vlm::printer
