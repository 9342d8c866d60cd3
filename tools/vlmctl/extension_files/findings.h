// What an author of extension files is told, one line each.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vlm::ctl {

enum class Severity { kWarning, kError };

struct Finding {
    std::wstring file;
    int line = 0;  // from 1
    Severity severity = Severity::kError;
    std::wstring text;  // printable
};

// Collects findings, no more than anyone would read: what an absurd file gives has no end.
class FindingList {
 public:
    void Error(const std::wstring& file, int line, std::wstring text);
    void Warning(const std::wstring& file, int line, std::wstring text);

    std::vector<Finding> Take() { return std::move(findings_); }

 private:
    void Add(const std::wstring& file, int line, Severity severity, std::wstring text);

    std::vector<Finding> findings_;
};

// A text from a file, between apostrophes, printable and not too long.
std::wstring Quoted(std::wstring_view text);

}  // namespace vlm::ctl
