// What a command found, as a table for a person or as JSON for a program.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace vlm::ctl {

using Json = nlohmann::ordered_json;
using Rows = std::vector<std::vector<std::string>>;

// As many cells in each row as in the first; at least one row.
void PrintTable(const Rows& rows);

void PrintJson(const Json& json);

}  // namespace vlm::ctl
