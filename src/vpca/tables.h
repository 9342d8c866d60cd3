// Registration of the codec's descriptor tables: the operations, the attributes and the structured
// attributes.
//
// The tables are constants; registering only opens them to lookups, which find nothing before. Any thread may
// register at any time, as often as it likes.
#pragma once

#include <atomic>

namespace vlm::vpca {

inline std::atomic<bool> tablesRegistered{false};

// Always true.
inline bool RegisterTables() {
    tablesRegistered.store(true, std::memory_order_relaxed);
    return true;
}

inline bool TablesRegistered() {
    return tablesRegistered.load(std::memory_order_relaxed);
}

}  // namespace vlm::vpca
