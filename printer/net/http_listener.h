// One HTTP port with its threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "printer/net/http_server.h"
#include "printer/net/tcp_socket.h"

namespace vlm::printer {

class HttpListener {
 public:
    // Listens at once (port 0: a free one), answers from Start on, `threads` connections at a time; further
    // ones wait. Throws std::runtime_error with one line: bad address, port in use.
    HttpListener(const std::string& address, std::uint16_t port, std::size_t threads,
                 std::unique_ptr<HttpServer> server);
    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;
    ~HttpListener();

    HttpServer& Server() { return *server_; }
    std::uint16_t Port() const { return ntohs(place_.sin_port); }

    void Start();  // throws std::system_error
    void Stop();   // ends every exchange

 private:
    void Work();
    UniqueFd NextConnection();

    const std::unique_ptr<HttpServer> server_;
    sockaddr_in place_;
    const std::size_t threads_;
    const UniqueFd stop_;  // eventfd, stays readable once it is set
    UniqueFd listener_;
    std::mutex accepting_;
    std::vector<std::thread> workers_;
};

}  // namespace vlm::printer
