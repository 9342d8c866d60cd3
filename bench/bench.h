// One measured row: ours against a reference that was measured in the same run, so that the machine's mood
// cancels out. Programs collect rows and write them to the file that the first argument names, as a JSON
// array of objects with name, unit, ours, reference, referenceIs, ratio, target. bench/run.py runs them all
// and prints one table.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace vlm::bench {

// Says on the error stream what is measured from now on, for whoever waits.
inline void Measuring(const std::string& what) {
    std::fprintf(stderr, "  %s\n", what.c_str());
    std::fflush(stderr);
}

// Nanoseconds of one call of `body`, which repeats its work `repetitions` times.
inline double Nanoseconds(long repetitions, const std::function<void(long)>& body) {
    const auto begin = std::chrono::steady_clock::now();
    body(repetitions);
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
    return time.count() / static_cast<double>(repetitions);
}

// The best of `rounds`, because whatever disturbs a measurement only makes it longer.
inline double BestNanoseconds(int rounds, long repetitions, const std::function<void(long)>& body) {
    double best = 1e300;
    for (int round = 0; round < rounds; ++round)
        best = std::min(best, Nanoseconds(repetitions, body));
    return best;
}

struct Pair {
    double ours;
    double reference;
};

// As BestNanoseconds, of two bodies in turns, so that both meet the same disturbances.
inline Pair BestOfBoth(int rounds, long repetitions, const std::function<void(long)>& ours,
                       const std::function<void(long)>& reference) {
    Pair best{1e300, 1e300};
    for (int round = 0; round < rounds; ++round) {
        best.reference = std::min(best.reference, Nanoseconds(repetitions, reference));
        best.ours = std::min(best.ours, Nanoseconds(repetitions, ours));
    }
    return best;
}

class Rows {
 public:
    // A comparison; `target` is what the ratio ours / reference has to keep, such as "<= 2.5".
    void Add(const std::string& name, const std::string& unit, double ours, double reference,
             const std::string& referenceIs, const std::string& target) {
        rows_ += Separator() + "{" + Text("name", name) + "," + Text("unit", unit) + "," +
                 Number("ours", ours) + "," + Number("reference", reference) + "," +
                 Text("referenceIs", referenceIs) + "," +
                 Number("ratio", reference > 0 ? ours / reference : 0) + "," + Text("target", target) + "}";
    }
    // A figure that is only stated.
    void State(const std::string& name, const std::string& unit, double ours) {
        rows_ += Separator() + "{" + Text("name", name) + "," + Text("unit", unit) + "," +
                 Number("ours", ours) +
                 ",\"reference\":null,\"referenceIs\":\"\",\"ratio\":null,\"target\":\"stated\"}";
    }
    // The exit status for main.
    int WriteTo(const char* path) const {
        std::FILE* file = std::fopen(path, "wb");
        if (file == nullptr) return 1;
        std::fprintf(file, "[%s]\n", rows_.c_str());
        return std::fclose(file) == 0 ? 0 : 1;
    }

 private:
    std::string Separator() const { return rows_.empty() ? "" : ",\n "; }
    // Names here are our own: no character of them needs escaping.
    static std::string Text(const char* key, const std::string& value) {
        return "\"" + std::string(key) + "\":\"" + value + "\"";
    }
    static std::string Number(const char* key, double value) {
        char text[64];
        std::snprintf(text, sizeof text, "\"%s\":%.6g", key, value);
        return text;
    }

    std::string rows_;
};

}  // namespace vlm::bench
