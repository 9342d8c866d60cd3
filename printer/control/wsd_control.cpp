#include "printer/control/wsd_control.h"

#include "printer/control/control_json.h"

namespace vlm::printer {
namespace {

using nlohmann::json;

bool EndsAtStage(HttpFaultMode mode) {
    return mode == HttpFaultMode::kMute || mode == HttpFaultMode::kClose || mode == HttpFaultMode::kReset;
}

// Only members that the mode uses are accepted, so that a typing error does not pass silently.
HttpFault ParseHttpFault(const std::string& body) {
    const json object = ParseObject(body, {"mode", "at", "piece", "pause", "bytes", "status", "connections"});
    const auto mode = ValueIn(kHttpFaultModes, TextMember(object, "mode"));
    if (!mode) throw BadRequest("'mode' must be one of " + NamesIn(kHttpFaultModes));
    HttpFault fault;
    fault.mode = *mode;
    const auto onlyFor = [&](bool fits, const char* key) {
        if (!fits && object.contains(key))
            throw BadRequest(fmt::format("{} takes no '{}'", NameIn(kHttpFaultModes, *mode), key));
    };
    onlyFor(EndsAtStage(*mode), "at");
    onlyFor(*mode == HttpFaultMode::kDrip, "piece");
    onlyFor(*mode == HttpFaultMode::kDrip, "pause");
    onlyFor(*mode == HttpFaultMode::kHuge, "bytes");
    onlyFor(*mode == HttpFaultMode::kRedirect || *mode == HttpFaultMode::kRedirectLoop, "status");

    const auto at = ValueIn(kHttpStages, TextMember(object, "at", NameIn(kHttpStages, fault.at)));
    if (!at) throw BadRequest("'at' must be connect, request, status-line, head or body");
    fault.at = *at;
    fault.piece = CountMember(object, "piece").value_or(fault.piece);
    fault.pause = CountMember(object, "pause").value_or(fault.pause);
    fault.bytes = CountMember(object, "bytes").value_or(fault.bytes);
    fault.status = CountMember(object, "status").value_or(fault.status);
    fault.connections = CountMember(object, "connections");
    if (const auto flaw = FindFlaw(fault)) throw BadRequest(*flaw);
    return fault;
}

json ToJson(const std::optional<HttpFault>& fault) {
    if (!fault) return nullptr;
    json object{{"mode", NameIn(kHttpFaultModes, fault->mode)}};
    if (EndsAtStage(fault->mode)) object["at"] = NameIn(kHttpStages, fault->at);
    if (fault->connections) object["connections"] = *fault->connections;
    return object;
}

WsdStyle ParseStyle(const std::string& body) {
    const json object = ParseObject(body, {"prefix", "soapPrefix", "nested", "extra"});
    WsdStyle style;
    style.prefix = TextMember(object, "prefix", style.prefix.c_str());
    style.soapPrefix = TextMember(object, "soapPrefix", style.soapPrefix.c_str());
    try {
        style.nested = object.value("nested", false);
        style.extra = object.value("extra", style.extra);
    } catch (const json::exception&) {
        throw BadRequest("'nested' must be true or false, 'extra' an object of texts");
    }
    if (const auto flaw = FindFlaw(style)) throw BadRequest(*flaw);
    return style;
}

json ToJson(const WsdStyle& style) {
    return {{"prefix", style.prefix},
            {"soapPrefix", style.soapPrefix},
            {"nested", style.nested},
            {"extra", style.extra}};
}

MachineChange ParseChange(const std::string& body) {
    const json object = ParseObject(body, {"name", "info", "location", "toner", "trays"});
    MachineChange change;
    for (const char* key : {"name", "info", "location"})
        if (object.contains(key)) change.texts[key] = TextMember(object, key);
    const auto levels = [&](const char* key, std::map<std::string, std::uint64_t>& into) {
        const auto found = object.find(key);
        if (found == object.end()) return;
        if (!found->is_object()) throw BadRequest(fmt::format("'{}' must be an object of percentages", key));
        for (const auto& [name, value] : found->items())
            into[name] = CountMember(*found, name.c_str()).value_or(0);
    };
    levels("toner", change.toner);
    levels("trays", change.trays);
    return change;
}

json ToJson(const MachineState& state) {
    json object{{"name", state.name},
                {"info", state.info},
                {"location", state.location},
                {"pages", state.pages},
                {"jobs", state.jobs}};
    for (const Cartridge& cartridge : state.cartridges)
        object["toner"][cartridge.color] = cartridge.Percent();
    for (const Bin& bin : state.inputBins)
        object["trays"][bin.name] = bin.Percent();
    for (const Condition& condition : state.conditions)
        object["conditions"].push_back(condition.name);
    return object;
}

}  // namespace

void AddWsdControl(HttpServer& server, HttpFaults& faults, WsdService& wsd, Machine& machine) {
    const auto state = [&faults, &wsd] {
        return json{{"fault", ToJson(faults.CurrentFault())}, {"style", ToJson(wsd.style.Get())}};
    };
    AddGet(server, "/wsd", state);
    AddRequests(server, "/wsd/requests", wsd.Requests(), state);
    AddSetting(
        server, "/wsd/fault", [&faults](const std::string& body) { faults.SetFault(ParseHttpFault(body)); },
        [&faults] { faults.ClearFault(); }, state);
    AddSetting(
        server, "/wsd/style", [&wsd](const std::string& body) { wsd.style.Set(ParseStyle(body)); },
        [&wsd] { wsd.style.Set({}); }, state);
    AddGet(server, "/machine", [&machine] { return ToJson(machine.State()); });
    server.Route("PUT", "/machine", [&machine](const HttpRequest& request, HttpResponse& response) {
        try {
            machine.Change(ParseChange(request.body));
        } catch (const std::invalid_argument& e) {
            throw BadRequest(e.what());
        }
        Reply(response, ToJson(machine.State()));
    });
}

}  // namespace vlm::printer
