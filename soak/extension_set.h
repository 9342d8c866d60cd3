// The driver's extension files, which change while queries read them. Each good text of a file gives a number
// as a value, and later texts give greater ones. Any thread; one thread changes.
#pragma once

#include <array>
#include <mutex>
#include <string>

#include "tests/util/temp_dir.h"

namespace vlm::soak {

class ExtensionSet {
 public:
    static constexpr size_t kFiles = 2;
    enum class Kind { kGood, kBroken, kMissing };

    struct State {
        unsigned changes = 0;                   // begun and ended ones: odd while one is under way
        std::array<int, kFiles> numbers{1, 1};  // of each file's last good text
        std::array<Kind, kFiles> kinds{};

        bool Readable() const { return kinds == std::array<Kind, kFiles>{}; }
    };

    ExtensionSet();

    // For the spooler: the driver's dependent files.
    std::wstring DependentFiles() const;

    // Changes one file at once. False when a reader kept it open.
    bool Change(size_t file, Kind kind, int number);
    State Now() const;

 private:
    bool Put(size_t file, Kind kind, int number) const;

    const test::TempDir folder_;
    mutable std::mutex mutex_;
    State state_;
};

}  // namespace vlm::soak
