// What a command found, as a table for a person or as JSON for a program.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace vlm::ctl {

using Json = nlohmann::ordered_json;
using Rows = std::vector<std::vector<std::string>>;

// As many cells in each row as in the first; at least one row.
void PrintTable(const Rows& rows);

void PrintJson(const Json& json);

// Null for an empty text and for an optional without a value.
inline Json OrNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}
template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

// How many columns a text in UTF-8 takes.
size_t Width(const std::string& utf8);
// The text with blanks behind it, `width` columns at least.
std::string Padded(const std::string& utf8, size_t width);

}  // namespace vlm::ctl
