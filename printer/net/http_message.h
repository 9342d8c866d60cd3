// One HTTP request and its answer. What a client sends is taken as it comes from the channel and parsed from
// the bytes; the answer is a text, and what of it goes out on the wire, and when, is for the caller to say.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "printer/net/channel.h"

namespace vlm::printer {

struct HttpRequest {
    std::string method;
    std::string path;                                          // without a query
    std::string version;                                       // "HTTP/1.1"
    std::vector<std::pair<std::string, std::string>> headers;  // as they were sent
    std::string body;

    std::string Header(const std::string& name) const;  // the first of that name, in any case; or empty
};

struct HttpResponse {
    int status = 200;
    std::string type;
    std::string body;

    void Set(std::string text, std::string contentType) {
        body = std::move(text);
        type = std::move(contentType);
    }
};

struct ReceivedRequest {
    HttpRequest request;  // as far as it came
    int refusal = 0;      // the status that says why it cannot be answered, or 0
};

// Bounded by the channel's time, a head of 64 KiB and `bodyLimit`. Nothing when the client broke off.
std::optional<ReceivedRequest> ReceiveRequest(Channel& channel, std::size_t bodyLimit);

// `status` with its reason ("404 Not Found"); `more` are further header lines, each with its end.
std::string HttpHead(const std::string& status, const std::string& type, std::size_t length,
                     const std::string& more = "");
std::string HttpText(const HttpResponse& response);

}  // namespace vlm::printer
