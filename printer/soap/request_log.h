// The last requests to a SOAP service, as the control API shows them. May be used from any thread.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>

#include "printer/net/http_message.h"

namespace vlm::printer {

class RequestLog {
 public:
    void Add(nlohmann::json entry);
    nlohmann::json All() const;  // oldest first
    void Clear();

    static constexpr std::size_t kKept = 100;

 private:
    mutable std::mutex mutex_;
    std::deque<nlohmann::json> entries_;
};

// As the client sent them, by name.
nlohmann::json ShownHeaders(const HttpRequest& request);

}  // namespace vlm::printer
