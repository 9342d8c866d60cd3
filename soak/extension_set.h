// The driver's extension files, which change while queries read them. A query is answered from a state that
// each file had at some time while it ran, and which these were is known here. Any thread; one thread
// changes.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/util/temp_dir.h"

namespace vlm::soak {

class ExtensionSet {
 public:
    static constexpr size_t kFiles = 2;
    // A file's state: the number that it gives as a value, or that it cannot be read.
    static constexpr int kBroken = -1;
    static constexpr int kMissing = -2;

    ExtensionSet();

    // For the spooler: the driver's dependent files.
    std::wstring DependentFiles() const;

    // One change of one file, in one piece. False when a reader kept it from being made.
    bool Change(size_t file, int state);

    // What the files may have been between the two calls.
    using Moment = std::array<size_t, kFiles>;
    struct Seen {
        std::array<std::set<int>, kFiles> states;
        bool Changed() const { return states[0].size() + states[1].size() > kFiles; }
    };
    Moment Begin() const;
    Seen End(const Moment& begin) const;

 private:
    bool Put(size_t file, int state) const;

    const test::TempDir folder_;
    mutable std::mutex mutex_;
    // Every state that a file was to get, oldest first. While it gets one, the one before may still be there.
    std::array<std::vector<int>, kFiles> states_;
    std::array<bool, kFiles> changing_{};
};

}  // namespace vlm::soak
