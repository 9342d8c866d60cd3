// The accounts of the department-ID service, from a JSON file that is read once.
//
//   [{"username": "4711", "password": "12345", "domain": "sales", "type": "department"}, …]
//
// Without "domain" or "type" an account accepts any. No message quotes the file.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vlm::printer {

struct Credentials {
    std::string username;
    std::string domain;
    std::string type;
    std::string password;
};

class Accounts {
 public:
    Accounts() = default;  // none
    // Throws std::runtime_error with one line.
    explicit Accounts(const std::string& path);

    bool Allow(const Credentials& credentials) const;

 private:
    struct Account {
        std::string username;
        std::string password;
        std::optional<std::string> domain;
        std::optional<std::string> type;
    };
    std::vector<Account> accounts_;
};

}  // namespace vlm::printer
