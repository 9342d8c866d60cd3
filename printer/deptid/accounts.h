// The accounts that the department-ID service knows: a JSON file, read once.
//
//   [{"username": "4711", "password": "12345", "domain": "sales", "type": "department"}, …]
//
// "domain" and "type" may be left out: any will do then. No message here quotes the file.
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
