// Points in time as the trace's lines and users write them: ISO 8601, local with the offset from UTC.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace vlm::ctl {

using TraceTime = std::chrono::sys_time<std::chrono::milliseconds>;

TraceTime Now();

// "2026-11-22T17:44:36.503+01:00"
std::string TimeText(TraceTime time);

// Takes a date and a time of day from the front of the text, written as above; seconds and what follows them
// may be missing, a blank may stand for the T, and without an offset the time is local. Leaves the text alone
// when it does not begin so.
std::optional<TraceTime> TakeTime(std::string_view& text);

// Takes a time of day with its milliseconds, "17:44:36.503", as lines had it before they had dates.
bool TakeTimeOfDay(std::string_view& text);

// When a user means by "10m", "1h30m", "2d" (that long before `now`), "17:44" (the last time it was that
// late), "2026-11-22" or a whole date and time. Throws CommandError with kWrongUsage.
TraceTime ParseSince(const std::string& text, TraceTime now);

}  // namespace vlm::ctl
