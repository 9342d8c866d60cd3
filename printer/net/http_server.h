// Answers HTTP so that no client can hold it up or fill it. Each connection has one request, of bounded
// length and in bounded time (channel.h), with TLS or without, and ends at once when the printer stops.
//
// Routes are added before the first connection; their handlers then run on worker threads, several at once.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "printer/net/channel.h"
#include "printer/net/http_message.h"

namespace vlm::printer {

class HttpServer {
 public:
    using Handler = std::function<void(const HttpRequest&, HttpResponse&)>;

    // Bodies over bodyLimit bytes are answered with 413. `tls` outlives the server.
    explicit HttpServer(std::size_t bodyLimit, SSL_CTX* tls = nullptr) : bodyLimit_(bodyLimit), tls_(tls) {}
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    virtual ~HttpServer() = default;

    void Route(const std::string& method, const std::string& path, Handler handler) {
        routes_[{method, path}] = std::move(handler);
    }
    // What an answer says when a handler throws; without it the connection just ends.
    void OnFailure(std::function<void(std::exception_ptr, HttpResponse&)> say) {
        sayFailure_ = std::move(say);
    }
    // What an answer says that no handler gave: its status is set, its body is missing.
    void OnRefusal(Handler say) { sayRefusal_ = std::move(say); }

    SSL_CTX* Tls() const { return tls_; }

    // One connection, on a worker thread. This one sends the answer as it is.
    virtual void Serve(Channel& channel);

 protected:
    struct Exchange {
        std::string path;
        std::string answer;  // head and body; empty when no request came
    };
    Exchange Answer(Channel& channel);

 private:
    void Dispatch(const HttpRequest& request, HttpResponse& response) const;

    const std::size_t bodyLimit_;
    SSL_CTX* const tls_;
    std::map<std::pair<std::string, std::string>, Handler> routes_;  // by method and path
    std::function<void(std::exception_ptr, HttpResponse&)> sayFailure_;
    Handler sayRefusal_;
};

}  // namespace vlm::printer
