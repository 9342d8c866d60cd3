// Serves HTTP so that no client can hold it up or fill it. Each connection has one request, of bounded length
// and in bounded time (channel.h), with TLS or without, and ends at once when the server is told to stop.
//
// The HTTP library reads the request and writes the answer into a text; what goes out on the wire, and when,
// is for Serve to say.
#pragma once

#include <httplib.h>

#include <string>

#include "channel.h"
#include "unique_fd.h"

namespace vlm::printer {

class HttpServer : public httplib::Server {
 public:
    explicit HttpServer(SSL_CTX* tls = nullptr);  // which outlives it. Throws std::runtime_error

    void EndExchanges();  // those under way and those to come

 protected:
    struct Exchange {
        std::string path;
        std::string answer;  // head and body; empty when no request came
    };
    Exchange Answer(Channel& channel);
    // One connection, on a worker thread. This one sends the answer as it is.
    virtual void Serve(Channel& channel);

 private:
    bool process_and_close_socket(socket_t handle) override;

    SSL_CTX* const tls_;
    const UniqueFd stop_;  // eventfd, stays readable once it is set
};

}  // namespace vlm::printer
