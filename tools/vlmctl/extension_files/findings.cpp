#include "tools/vlmctl/extension_files/findings.h"

#include <utility>

#include "util/vlutil.h"

namespace vlm::ctl {

namespace {
constexpr size_t kMostFindings = 500;
constexpr size_t kLongestQuote = 120;
}  // namespace

void FindingList::Error(const std::wstring& file, int line, std::wstring text) {
    Add(file, line, Severity::kError, std::move(text));
}

void FindingList::Warning(const std::wstring& file, int line, std::wstring text) {
    Add(file, line, Severity::kWarning, std::move(text));
}

void FindingList::Add(const std::wstring& file, int line, Severity severity, std::wstring text) {
    if (findings_.size() < kMostFindings) {
        findings_.push_back({file, line, severity, std::move(text)});
    } else if (findings_.size() == kMostFindings) {
        findings_.push_back({file, line, Severity::kError, L"too many findings; the rest is left out"});
    }
}

std::wstring Quoted(std::wstring_view text) {
    return L"'" + Printable(text, kLongestQuote) + L"'";
}

}  // namespace vlm::ctl
