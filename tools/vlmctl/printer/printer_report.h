// What a printer tells about itself: read once, then shown as a screen, as a line among many, as JSON and as
// metrics.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/vlmctl/console/table.h"

namespace vlm::ctl {

// All texts are printable UTF-8, and empty where the printer says nothing.
struct PrinterReport {
    struct Condition {
        std::string component;
        std::string name;
        std::string severity;
    };
    struct Level {
        std::string text;                 // as the printer says it
        std::optional<unsigned> percent;  // empty when it is none
    };
    struct Consumable {
        std::string name;
        std::string colour;
        std::string type;
        std::string model;
        Level level;

        // What a person calls it.
        const std::string& Title() const;
    };
    struct Tray {
        std::string name;
        std::string mediaSize;
        std::string mediaType;
        std::string capacity;
        Level level;
    };

    std::string name;
    std::string info;
    std::string location;
    std::string state;
    std::vector<std::string> reasons;
    std::vector<Condition> conditions;
    std::string queuedJobs;
    std::vector<Consumable> consumables;
    std::vector<Tray> trays;
};

// Below that a consumable counts as low.
inline constexpr unsigned kLowPercent = 10;

// Asks the printer's print service. Throws CommandError when that does not answer, and with kNothingFound
// when it tells nothing. For threads with COM initialised.
PrinterReport AskPrinter(const std::string& url);

// Empty unless the whole text is a number.
std::optional<unsigned> NumberIn(const std::string& text);

// "InputTray Tray1: MediaEmpty (Warning)"
std::string ConditionText(const PrinterReport::Condition& condition);

// The members of a printer's JSON that the report knows.
void AddToJson(const PrinterReport& report, Json& json);

}  // namespace vlm::ctl
