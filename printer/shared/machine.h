// The machine behind the services: its name, its supplies, and how they change as it prints.
//
// It never stops: empty trays and cartridges stay empty and are reported as conditions, and printing goes on.
// Thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::printer {

using SystemTime = std::chrono::system_clock::time_point;

struct Cartridge {
    std::string name, color, model;
    unsigned tenths = 1000;                                 // left, in tenths of a percent
    unsigned tenthsPerPage = 0;                             // used by one page
    unsigned Percent() const { return (tenths + 9) / 10; }  // 0 only when it is empty
};

struct Bin {
    std::string name, feedDirection, mediaSize, mediaType;  // the last three for input bins only
    unsigned capacity = 0;                                  // sheets
    unsigned sheets = 0;
    unsigned Percent() const { return (sheets * 100 + capacity - 1) / capacity; }
};

struct Condition {
    unsigned id = 0;
    std::string name, component, severity;
    SystemTime since;
};

// A snapshot.
struct MachineState {
    std::string name = "Velun VP-4200C";
    std::string info = "A3 colour, 4 trays, inner finisher";
    std::string location = "Zürich, 2. Stock";
    std::vector<Cartridge> cartridges;
    std::vector<Bin> inputBins;
    std::vector<Bin> outputBins;
    std::vector<Condition> conditions;  // by id
    std::uint64_t pages = 0;
    std::uint64_t storedBytes = 0;
    unsigned jobs = 0;  // documents that are arriving
};

// What a user may set. Members that are not given stay as they are.
struct MachineChange {
    std::map<std::string, std::string> texts;    // name, info, location
    std::map<std::string, std::uint64_t> toner;  // percent by colour
    std::map<std::string, std::uint64_t> trays;  // percent by input bin's name
};

class Machine {
 public:
    // A machine with a number above 1 has it in its name, and levels that follow from it.
    explicit Machine(unsigned number = 1);

    MachineState State() const;
    // Throws std::invalid_argument with one line; then nothing has changed.
    void Change(const MachineChange& change);

    // A document while it arrives. When it ends, complete or not, its bytes count as printed.
    class Job {
     public:
        explicit Job(Machine& machine);
        Job(const Job&) = delete;
        Job& operator=(const Job&) = delete;
        ~Job();
        void SetBytes(std::uint64_t bytes) { bytes_ = bytes; }

     private:
        Machine& machine_;
        std::uint64_t bytes_ = 0;
    };

    // A document has a page for each 64 KiB or part of it.
    static constexpr std::uint64_t kBytesPerPage = std::uint64_t{64} * 1024;

 private:
    void Print(std::uint64_t bytes);
    void UpdateConditions();

    mutable std::mutex mutex_;
    MachineState state_;
    unsigned lastCondition_ = 1040;
};

}  // namespace vlm::printer
