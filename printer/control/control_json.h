// Reading and writing the control API's JSON.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "printer/net/http_server.h"
#include "printer/shared/recent.h"

namespace vlm::printer {

// Answered with 400 and its text.
struct BadRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

inline nlohmann::json ParseObject(const std::string& body, std::initializer_list<std::string_view> allowed) {
    nlohmann::json object = nlohmann::json::parse(body, nullptr, false);
    if (!object.is_object()) throw BadRequest("the body is not a JSON object");
    for (const auto& [key, value] : object.items()) {
        bool known = false;
        for (const std::string_view name : allowed)
            known = known || key == name;
        if (!known) throw BadRequest(fmt::format("unknown member '{}'", key));
    }
    return object;
}

inline std::string TextMember(const nlohmann::json& object, const char* key, const char* fallback = nullptr) {
    const auto found = object.find(key);
    if (found == object.end() && fallback != nullptr) return fallback;
    if (found == object.end() || !found->is_string())
        throw BadRequest(fmt::format("'{}' must be a text", key));
    return found->get<std::string>();
}

inline std::optional<std::uint64_t> CountMember(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    if (!found->is_number_unsigned())
        throw BadRequest(fmt::format("'{}' must be a whole number from 0 up", key));
    return found->get<std::uint64_t>();
}

inline void Reply(HttpResponse& response, const nlohmann::json& body, int status = 200) {
    response.status = status;
    // Folder names and answers may hold anything; bytes that are not UTF-8 are replaced.
    response.Set(body.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n",
                 "application/json");
}

template <typename Shown>
void AddGet(HttpServer& server, const char* path, Shown shown) {
    server.Route("GET", path,
                 [shown](const HttpRequest&, HttpResponse& response) { Reply(response, shown()); });
}

// GET shows the last requests, DELETE forgets them and answers with what `shown` returns.
template <typename Shown>
void AddRequests(HttpServer& server, const char* path, Recent<nlohmann::json>& requests, Shown shown) {
    AddGet(server, path, [&requests] { return requests.All(); });
    server.Route("DELETE", path, [shown, &requests](const HttpRequest&, HttpResponse& response) {
        requests.Clear();
        Reply(response, shown());
    });
}

// PUT sets from its body, DELETE clears; both answer with what `shown` returns afterwards.
template <typename Set, typename Clear, typename Shown>
void AddSetting(HttpServer& server, const char* path, Set set, Clear clear, Shown shown) {
    server.Route("PUT", path, [set, shown](const HttpRequest& request, HttpResponse& response) {
        set(request.body);
        Reply(response, shown());
    });
    server.Route("DELETE", path, [clear, shown](const HttpRequest&, HttpResponse& response) {
        clear();
        Reply(response, shown());
    });
}

}  // namespace vlm::printer
