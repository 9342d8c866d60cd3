// Numbers for a monitoring system, in the text format that Prometheus scrapes and that its exporters collect
// from files.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vlm::ctl {

class Metrics {
 public:
    enum class Type { kGauge, kCounter };
    using Labels = std::vector<std::pair<const char*, std::string>>;

    // What is added from here on belongs to this family. One without a sample is left out.
    void Family(const char* name, Type type, const char* help);
    // No two samples of a family have the same labels.
    void Add(const Labels& labels, double value);

    // UTF-8, line feeds only, in the order of the calls.
    const std::string& Text() const { return text_; }

 private:
    std::string name_;
    std::string head_;  // of the present family, until its first sample
    std::string text_;
};

// To this file, or to standard output when that is "" or "-". A reader of the file finds the old text or the
// new one, never a piece. Throws CommandError.
void WriteMetrics(const Metrics& metrics, const std::string& file);

}  // namespace vlm::ctl
