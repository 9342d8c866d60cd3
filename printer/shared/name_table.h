// An enumeration's values by the names that users write.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace vlm::printer {

template <typename Value, std::size_t N>
using NameTable = std::array<std::pair<const char*, Value>, N>;

template <typename Value, std::size_t N>
const char* NameIn(const NameTable<Value, N>& table, Value value) {
    for (const auto& [name, entry] : table)
        if (entry == value) return name;
    return "";
}

template <typename Value, std::size_t N>
std::optional<Value> ValueIn(const NameTable<Value, N>& table, const std::string& name) {
    for (const auto& [entry, value] : table)
        if (name == entry) return value;
    return std::nullopt;
}

template <typename Value, std::size_t N>
std::string NamesIn(const NameTable<Value, N>& table) {  // "mute, close, …"
    std::string all;
    for (const auto& [name, value] : table)
        all += (all.empty() ? "" : ", ") + std::string(name);
    return all;
}

}  // namespace vlm::printer
