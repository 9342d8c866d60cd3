#include "tools/vlmctl/trace/trace_time.h"

#include <windows.h>

#include <fmt/format.h>

#include <charconv>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"

namespace vlm::ctl {

namespace {

using namespace std::chrono;

// A date and time of day, without saying where.
using WallTime = local_time<milliseconds>;

// From 1601, in units of 100 ns, as Windows counts.
using FileTicks = duration<long long, std::ratio<1, 10'000'000>>;
constexpr seconds kFileEpoch(-11'644'473'600);

SYSTEMTIME FieldsOf(milliseconds sinceEpoch) {
    const long long ticks = FileTicks(sinceEpoch - kFileEpoch).count();
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME fields{};
    FileTimeToSystemTime(&time, &fields);
    return fields;
}

milliseconds SinceEpoch(const SYSTEMTIME& fields) {
    FILETIME time{};
    SystemTimeToFileTime(&fields, &time);
    const auto ticks = static_cast<long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    return duration_cast<milliseconds>(FileTicks(ticks)) + kFileEpoch;
}

WallTime ToLocal(TraceTime time) {
    const SYSTEMTIME utc = FieldsOf(time.time_since_epoch());
    SYSTEMTIME local = utc;
    SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local);
    return WallTime(SinceEpoch(local));
}

TraceTime FromLocal(WallTime time) {
    const SYSTEMTIME local = FieldsOf(time.time_since_epoch());
    SYSTEMTIME utc = local;
    TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc);
    return TraceTime(SinceEpoch(utc));
}

// Reads front to back; what does not fit leaves the text as it is.
class Scanner {
 public:
    explicit Scanner(std::string_view text) : text_(text) {}

    // Exactly so many digits.
    bool Digits(size_t count, int* number) {
        if (text_.size() < count) return false;
        int value = 0;
        for (const char c : text_.substr(0, count)) {
            if (c < '0' || c > '9') return false;
            value = value * 10 + (c - '0');
        }
        *number = value;
        text_.remove_prefix(count);
        return true;
    }
    bool Character(char c) {
        if (!text_.starts_with(c)) return false;
        text_.remove_prefix(1);
        return true;
    }
    std::string_view Rest() const { return text_; }

 private:
    std::string_view text_;
};

bool ScanDate(Scanner& scanner, local_days* date) {
    int y = 0;
    int m = 0;
    int d = 0;
    if (!scanner.Digits(4, &y) || !scanner.Character('-') || !scanner.Digits(2, &m) ||
        !scanner.Character('-') || !scanner.Digits(2, &d))
        return false;
    const year_month_day parsed = year(y) / m / d;
    // The calendar of Windows begins there.
    if (!parsed.ok() || y < 1601) return false;
    *date = local_days(parsed);
    return true;
}

// "17:44", "17:44:36", "17:44:36.503"
bool ScanClock(Scanner& scanner, milliseconds* clock) {
    int h = 0;
    int m = 0;
    int s = 0;
    if (!scanner.Digits(2, &h) || !scanner.Character(':') || !scanner.Digits(2, &m)) return false;
    Scanner further = scanner;
    milliseconds fraction(0);
    if (further.Character(':') && further.Digits(2, &s)) {
        scanner = further;
        if (further.Character('.')) {
            int digit = 0;
            for (int unit = 100; further.Digits(1, &digit); unit /= 10) {
                fraction += milliseconds(digit * unit);
                scanner = further;
            }
        }
    }
    *clock = hours(h) + minutes(m) + seconds(s) + fraction;
    return h < 24 && m < 60 && s < 60;
}

// "Z", "+01:00"; false when there is none, and then the time is local.
bool ScanOffset(Scanner& scanner, minutes* offset) {
    *offset = minutes(0);
    if (scanner.Character('Z')) return true;
    Scanner further = scanner;
    const bool behind = further.Character('-');
    int h = 0;
    int m = 0;
    if ((!behind && !further.Character('+')) || !further.Digits(2, &h)) return false;
    further.Character(':');
    if (!further.Digits(2, &m) || h > 23 || m > 59) return false;
    *offset = (behind ? -1 : 1) * (hours(h) + minutes(m));
    scanner = further;
    return true;
}

// "10m", "1h30m", "1.5h"; false for anything else.
bool ScanLength(std::string_view text, milliseconds* length) {
    constexpr double kLongest = 1000.0 * 86'400 * 365 * 100;
    double total = 0;
    while (!text.empty()) {
        double number = 0;
        const char* const end = text.data() + text.size();
        const auto [behind, problem] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
        if (problem != std::errc() || behind == end || text.starts_with('-')) return false;
        const char unit = *behind;
        const double milliseconds = unit == 's'   ? 1e3
                                    : unit == 'm' ? 60e3
                                    : unit == 'h' ? 3600e3
                                    : unit == 'd' ? 86'400e3
                                                  : 0;
        if (milliseconds == 0) return false;
        total += number * milliseconds;
        if (!(total <= kLongest)) return false;
        text.remove_prefix(static_cast<size_t>(behind - text.data()) + 1);
    }
    *length = std::chrono::milliseconds(static_cast<long long>(total));
    return true;
}

}  // namespace

TraceTime Now() {
    return floor<milliseconds>(system_clock::now());
}

std::string TimeText(TraceTime time) {
    const WallTime local = ToLocal(time);
    const auto offset = duration_cast<minutes>(local.time_since_epoch() - time.time_since_epoch()).count();
    const SYSTEMTIME fields = FieldsOf(local.time_since_epoch());
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}{}{:02}:{:02}", fields.wYear, fields.wMonth,
                       fields.wDay, fields.wHour, fields.wMinute, fields.wSecond, fields.wMilliseconds,
                       offset < 0 ? '-' : '+', std::abs(offset) / 60, std::abs(offset) % 60);
}

std::optional<TraceTime> TakeTime(std::string_view& text) {
    Scanner scanner(text);
    local_days date;
    milliseconds clock(0);
    if (!ScanDate(scanner, &date)) return std::nullopt;
    if (!scanner.Character('T') && !scanner.Character(' ')) return std::nullopt;
    if (!ScanClock(scanner, &clock)) return std::nullopt;
    const WallTime local = date + clock;
    minutes offset(0);
    const TraceTime time =
        ScanOffset(scanner, &offset) ? TraceTime(local.time_since_epoch() - offset) : FromLocal(local);
    text = scanner.Rest();
    return time;
}

bool TakeTimeOfDay(std::string_view& text) {
    Scanner scanner(text);
    milliseconds clock(0);
    if (!ScanClock(scanner, &clock) || !scanner.Rest().starts_with(' ')) return false;
    text = scanner.Rest();
    return true;
}

TraceTime ParseSince(const std::string& text, TraceTime now) {
    milliseconds length(0);
    if (!text.empty() && ScanLength(text, &length)) return now - length;
    std::string_view rest = text;
    if (const std::optional<TraceTime> time = TakeTime(rest); time && rest.empty()) return *time;
    Scanner dateOnly(text);
    local_days date;
    if (ScanDate(dateOnly, &date) && dateOnly.Rest().empty()) return FromLocal(date);
    Scanner clockOnly(text);
    if (ScanClock(clockOnly, &length) && clockOnly.Rest().empty()) {
        const local_days today = floor<days>(ToLocal(now));
        const TraceTime then = FromLocal(today + length);
        return then <= now ? then : FromLocal(today - days(1) + length);
    }
    throw CommandError(
        "'" + Shown(text) + "' is not a time; write 10m, 2h, 17:44, 2026-11-22 or 2026-11-22T17:44:36+01:00",
        kWrongUsage);
}

}  // namespace vlm::ctl
