#include "tools/vlmctl/trace/trace_line.h"

#include <algorithm>
#include <charconv>

namespace vlm::ctl {

namespace {

struct Mark {
    std::string_view text;
    TraceLevel level;
};
constexpr Mark kMarks[] = {{"Info: ", TraceLevel::kInformation},
                           {"Verbose: ", TraceLevel::kVerbose},
                           {"Error: ", TraceLevel::kError}};

// The number that the text begins with, 0 when there is none.
std::uint64_t Number(std::string_view text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// The number right before `unit`.
std::uint64_t NumberBefore(std::string_view text, std::string_view unit) {
    const size_t end = text.find(unit);
    if (end == std::string_view::npos) return 0;
    text = text.substr(0, end);
    return Number(text.substr(text.find_last_not_of("0123456789") + 1));
}

std::uint64_t NumberBehind(std::string_view text, std::string_view word) {
    const size_t at = text.find(word);
    return at == std::string_view::npos ? 0 : Number(text.substr(at + word.size()));
}

// What stands between the quotes behind `subject`, and the rest of the text behind them. False when the text
// does not begin so.
bool TakeSubject(std::string_view& text, std::string_view subject, std::string* name) {
    if (!text.starts_with(subject)) return false;
    const size_t begin = subject.size();
    const size_t end = text.find("\": ", begin);
    if (end == std::string_view::npos) return false;
    *name = text.substr(begin, end - begin);
    text.remove_prefix(end + 3);
    return true;
}

TracedEnd EndOf(std::string_view what) {
    if (what.starts_with("job ")) return TracedEnd::kJob;
    if (what.starts_with("query ")) return TracedEnd::kQuery;
    if (what.starts_with("remote ")) return TracedEnd::kRemoteCall;
    return what.starts_with("exchange ") ? TracedEnd::kExchange : TracedEnd::kNone;
}

// The time and the process that "vlmctl trace" writes before each line.
void TakeStamp(std::string_view& line, std::optional<TraceTime>* time) {
    *time = TakeTime(line);
    if (!*time && !TakeTimeOfDay(line)) return;
    const size_t process = std::min(line.find_first_not_of(' '), line.size());
    const size_t end = line.find_first_not_of("0123456789", process);
    if (end != std::string_view::npos && end > process && line[end] == ' ') line.remove_prefix(end + 1);
}

}  // namespace

TraceLine ParseTraceLine(std::string_view line) {
    TraceLine parsed;
    TakeStamp(line, &parsed.time);
    for (const Mark& mark : kMarks) {
        for (const std::string_view subject : {"port \"", "host \""}) {
            const size_t at = line.find(std::string(mark.text).append(subject));
            if (at != std::string_view::npos) line.remove_prefix(at);
        }
    }
    parsed.text = line;
    for (const Mark& mark : kMarks) {
        if (!line.starts_with(mark.text)) continue;
        parsed.level = mark.level;
        line.remove_prefix(mark.text.size());
        break;
    }
    if (!TakeSubject(line, "port \"", &parsed.port) && !TakeSubject(line, "host \"", &parsed.host))
        return parsed;
    const size_t ended = line.rfind(" ended, ");
    if (parsed.level != TraceLevel::kInformation || ended == std::string_view::npos) return parsed;
    parsed.end = EndOf(line);
    const std::string_view counts = line.substr(ended);
    parsed.bytes = NumberBefore(counts, " bytes");
    parsed.failedWrites = NumberBefore(counts, " failed writes");
    parsed.milliseconds = NumberBefore(counts, " ms");
    parsed.status = NumberBehind(counts, " status ");
    return parsed;
}

}  // namespace vlm::ctl
