#include "printer/shared/machine.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace vlm::printer {
namespace {

constexpr unsigned kTonerLow = 10;  // percent
constexpr unsigned kMediaLow = 25;

void Take(unsigned& stock, std::uint64_t amount) {
    stock -= static_cast<unsigned>(std::min<std::uint64_t>(stock, amount));
}

template <typename Things, typename Key>
auto& FindThing(Things& things, Key key, const std::string& wanted, const char* kind) {
    for (auto& thing : things)
        if (thing.*key == wanted) return thing;
    throw std::invalid_argument(fmt::format("unknown {} '{}'", kind, wanted));
}

unsigned CheckedPercent(std::uint64_t percent) {
    if (percent > 100) throw std::invalid_argument("a level is a percentage, 0 to 100");
    return static_cast<unsigned>(percent);
}

}  // namespace

Machine::Machine(unsigned number) {
    state_.cartridges = {
        {"TonerK", "Black", "VT-42K", 850, 10},
        {"TonerC", "Cyan", "VT-42C", 610, 5},
        {"TonerM", "Magenta", "VT-42M", 470, 5},
        {"TonerY", "Yellow", "VT-42Y", 80, 5},
    };
    state_.inputBins = {
        {"Tray1", "LongEdgeFirst", "iso_a4_210x297mm", "stationery", 550, 412},
        {"Tray2", "ShortEdgeFirst", "iso_a3_297x420mm", "stationery", 550, 0},
        {"Tray3", "LongEdgeFirst", "iso_a4_210x297mm", "stationery-letterhead", 1200, 1200},
        {"Manual", "ShortEdgeFirst", "iso_c5_162x229mm", "envelope", 100, 25},
    };
    state_.outputBins = {{"Standard", "", "", "", 250, 25}, {"Finisher", "", "", "", 1000, 0}};
    if (number != 1) {
        state_.name += fmt::format(" {}", number);
        unsigned level = number * 37;
        for (Cartridge& cartridge : state_.cartridges)
            cartridge.tenths = (level += 173) % 1001;
        for (Bin& bin : state_.inputBins)
            bin.sheets = (level += 59) % (bin.capacity + 1);
    }
    UpdateConditions();
}

MachineState Machine::State() const {
    const std::scoped_lock lock(mutex_);
    return state_;
}

void Machine::Change(const MachineChange& change) {
    const std::scoped_lock lock(mutex_);
    MachineState changed = state_;
    for (const auto& [name, text] : change.texts) {
        const auto control = [](unsigned char c) { return c < ' '; };  // XML cannot hold them
        if (std::any_of(text.begin(), text.end(), control))
            throw std::invalid_argument(fmt::format("'{}' holds a control character", name));
        if (name == "name")
            changed.name = text;
        else if (name == "info")
            changed.info = text;
        else
            changed.location = text;
    }
    for (const auto& [color, percent] : change.toner)
        FindThing(changed.cartridges, &Cartridge::color, color, "toner").tenths =
            CheckedPercent(percent) * 10;
    for (const auto& [name, percent] : change.trays) {
        Bin& bin = FindThing(changed.inputBins, &Bin::name, name, "tray");
        bin.sheets = bin.capacity * CheckedPercent(percent) / 100;
    }
    state_ = std::move(changed);
    UpdateConditions();
}

// Paper comes from the first tray and ends in the first output bin, which empties itself when it is full.
void Machine::Print(std::uint64_t bytes) {
    const std::uint64_t pages = (bytes + kBytesPerPage - 1) / kBytesPerPage;
    state_.pages += pages;
    state_.storedBytes += bytes;
    for (Cartridge& cartridge : state_.cartridges)
        Take(cartridge.tenths, pages * cartridge.tenthsPerPage);
    Take(state_.inputBins.front().sheets, pages);
    Bin& out = state_.outputBins.front();
    out.sheets = static_cast<unsigned>((out.sheets + pages) % out.capacity);
    UpdateConditions();
}

// A condition that goes on keeps its id and time.
void Machine::UpdateConditions() {
    std::vector<Condition> now;
    const auto add = [&](std::string name, std::string component, std::string severity) {
        now.push_back({0, std::move(name), std::move(component), std::move(severity), {}});
    };
    unsigned leastToner = 100;
    for (const Cartridge& cartridge : state_.cartridges)
        leastToner = std::min(leastToner, cartridge.Percent());
    if (leastToner <= kTonerLow)
        add(leastToner == 0 ? "MarkerSupplyEmpty" : "MarkerSupplyLow", "Marker", "Warning");
    bool empty = false;
    bool low = false;
    for (const Bin& bin : state_.inputBins) {
        empty = empty || bin.sheets == 0;
        low = low || (bin.sheets > 0 && bin.Percent() <= kMediaLow);
    }
    if (empty) add("MediaEmpty", "InputTray", "Warning");
    if (low) add("MediaLow", "InputTray", "Informational");

    for (Condition& condition : now) {
        const auto same = [&](const Condition& other) { return other.name == condition.name; };
        const auto old = std::find_if(state_.conditions.begin(), state_.conditions.end(), same);
        const bool goesOn = old != state_.conditions.end();
        condition.id = goesOn ? old->id : ++lastCondition_;
        condition.since = goesOn ? old->since : std::chrono::system_clock::now();
    }
    std::sort(now.begin(), now.end(), [](const Condition& a, const Condition& b) { return a.id < b.id; });
    state_.conditions = std::move(now);
}

Machine::Job::Job(Machine& machine) : machine_(machine) {
    const std::scoped_lock lock(machine_.mutex_);
    ++machine_.state_.jobs;
}

Machine::Job::~Job() {
    const std::scoped_lock lock(machine_.mutex_);
    --machine_.state_.jobs;
    machine_.Print(bytes_);
}

}  // namespace vlm::printer
