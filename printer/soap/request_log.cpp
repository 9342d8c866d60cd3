#include "printer/soap/request_log.h"

#include <utility>

namespace vlm::printer {

void RequestLog::Add(nlohmann::json entry) {
    const std::scoped_lock lock(mutex_);
    entries_.push_back(std::move(entry));
    if (entries_.size() > kKept) entries_.pop_front();
}

nlohmann::json RequestLog::All() const {
    const std::scoped_lock lock(mutex_);
    return entries_;
}

void RequestLog::Clear() {
    const std::scoped_lock lock(mutex_);
    entries_.clear();
}

nlohmann::json ShownHeaders(const HttpRequest& request) {
    nlohmann::json headers = nlohmann::json::object();
    for (const auto& [name, value] : request.headers)
        headers[name] = value;
    return headers;
}

}  // namespace vlm::printer
