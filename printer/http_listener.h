// One HTTP port with its server thread. A service registers its routes before Start; its handlers then run on
// the server's worker threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "http_server.h"

namespace vlm::printer {

class HttpListener {
 public:
    // Listens at once (port 0: a free one), answers from Start on; connections in between wait. Bodies over
    // bodyLimit bytes are answered with 413. Throws std::runtime_error with one line: bad address, port in
    // use.
    HttpListener(const std::string& address, std::uint16_t port, std::size_t bodyLimit,
                 std::unique_ptr<HttpServer> server = std::make_unique<HttpServer>());
    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;
    ~HttpListener();

    httplib::Server& Routes() { return *server_; }
    std::uint16_t Port() const { return port_; }

    void Start();  // throws std::runtime_error
    void Stop();   // ends every exchange

 private:
    std::unique_ptr<HttpServer> server_;
    std::uint16_t port_ = 0;
    std::thread thread_;
};

}  // namespace vlm::printer
