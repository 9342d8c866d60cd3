#include "printer/net/http_message.h"

#include <fmt/format.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string_view>

namespace vlm::printer {
namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
using Parser = http::request_parser<http::string_body>;

constexpr std::uint32_t kHeadLimit = std::uint32_t{64} << 10;

std::string Text(beast::string_view text) {
    return {text.data(), text.size()};
}

// A target is a path, or for a client that takes us for a proxy a whole URL.
std::string PathOf(std::string target) {
    target.erase(std::min(target.find('?'), target.size()));
    if (target.starts_with("/")) return target;
    const auto host = target.find("://");
    const auto path = host == std::string::npos ? host : target.find('/', host + 3);
    return path == std::string::npos ? "/" : target.substr(path);
}

HttpRequest RequestOf(const Parser& parser) {
    const auto& message = parser.get();
    HttpRequest request{Text(message.method_string()),
                        PathOf(Text(message.target())),
                        fmt::format("HTTP/{}.{}", message.version() / 10, message.version() % 10),
                        {},
                        message.body()};
    for (const auto& field : message)
        request.headers.emplace_back(Text(field.name_string()), Text(field.value()));
    return request;
}

int RefusalOf(const boost::system::error_code& failure) {
    if (failure == http::error::body_limit) return 413;
    if (failure == http::error::header_limit) return 431;
    return 400;
}

bool WaitsForGoOn(const Parser& parser) {
    return parser.is_header_done() && parser.get().version() >= 11 &&
           beast::iequals(parser.get()[http::field::expect], "100-continue");
}

}  // namespace

std::string HttpRequest::Header(const std::string& name) const {
    for (const auto& [key, value] : headers)
        if (beast::iequals(key, name)) return value;
    return {};
}

std::optional<ReceivedRequest> ReceiveRequest(Channel& channel, std::size_t bodyLimit) {
    Parser parser;
    parser.header_limit(kHeadLimit);
    parser.body_limit(bodyLimit);
    parser.eager(true);  // the body as well as the head

    std::array<char, 4096> piece{};
    std::string pending;  // what the parser wants to see again, with what follows
    bool toldToGoOn = false;
    while (!parser.is_done()) {
        if (!toldToGoOn && WaitsForGoOn(parser)) {
            toldToGoOn = true;
            if (!channel.Write("HTTP/1.1 100 Continue\r\n\r\n")) return std::nullopt;
        }
        const std::ptrdiff_t count = channel.Read(piece.data(), piece.size());
        if (count <= 0) return std::nullopt;
        pending.append(piece.data(), static_cast<std::size_t>(count));
        boost::system::error_code failure;
        pending.erase(0, parser.put(boost::asio::buffer(pending), failure));
        if (failure && failure != http::error::need_more)
            return ReceivedRequest{RequestOf(parser), RefusalOf(failure)};
    }
    return ReceivedRequest{RequestOf(parser)};
}

std::string HttpHead(const std::string& status, const std::string& type, std::size_t length,
                     const std::string& more) {
    return fmt::format("HTTP/1.1 {}\r\nConnection: close\r\nContent-Type: {}\r\nContent-Length: {}\r\n{}\r\n",
                       status, type, length, more);
}

std::string HttpText(const HttpResponse& response) {
    const auto reason = http::obsolete_reason(http::int_to_status(static_cast<unsigned>(response.status)));
    return HttpHead(fmt::format("{} {}", response.status, Text(reason)), response.type,
                    response.body.size()) +
           response.body;
}

}  // namespace vlm::printer
