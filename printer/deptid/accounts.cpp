#include "printer/deptid/accounts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace vlm::printer {
namespace {

using nlohmann::json;

std::optional<std::string> Text(const json& account, const char* key) {
    const auto found = account.find(key);
    if (found == account.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

}  // namespace

Accounts::Accounts(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    const json all = json::parse(file, nullptr, false);
    if (!all.is_array()) throw std::runtime_error(path + " is not a JSON array of accounts");
    for (const json& entry : all) {
        Account account;
        std::size_t texts = 0;
        if (entry.is_object()) {
            const auto username = Text(entry, "username");
            const auto password = Text(entry, "password");
            account = {username.value_or(""), password.value_or(""), Text(entry, "domain"),
                       Text(entry, "type")};
            // Without a name or a password it would accept an empty one.
            if (username && password) texts = 2 + (account.domain ? 1u : 0u) + (account.type ? 1u : 0u);
        }
        if (texts == 0 || texts != entry.size())
            throw std::runtime_error(
                fmt::format("{}: account {} must have the texts 'username' and 'password' and may have "
                            "'domain' and 'type'",
                            path, accounts_.size() + 1));
        accounts_.push_back(std::move(account));
    }
}

bool Accounts::Allow(const Credentials& credentials) const {
    return std::any_of(accounts_.begin(), accounts_.end(), [&](const Account& account) {
        return account.username == credentials.username && account.password == credentials.password &&
               account.domain.value_or(credentials.domain) == credentials.domain &&
               account.type.value_or(credentials.type) == credentials.type;
    });
}

}  // namespace vlm::printer
