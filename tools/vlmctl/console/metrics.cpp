#include "tools/vlmctl/console/metrics.h"

#include <windows.h>

#include <fmt/format.h>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "util/handles.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

std::string Escaped(const std::string& text) {
    std::string escaped;
    // By way of UTF-16, so that what is no UTF-8 becomes replacement characters.
    for (const char c : ToUtf8(FromUtf8(text))) {
        if (c == '\n')
            escaped += "\\n";
        else if (c == '\\' || c == '"')
            escaped += {'\\', c};
        else
            escaped += c;
    }
    return escaped;
}

bool WriteDraft(const std::wstring& draft, const std::string& text) {
    const File file(
        CreateFileW(draft.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file && WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
           written == text.size();
}

// A collector that is just reading the old file does not share it with who wants to replace it.
bool Replace(const std::wstring& draft, const std::wstring& file) {
    constexpr DWORD kPause = 50;  // milliseconds
    for (int tries = 40; !MoveFileExW(draft.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING); --tries) {
        const DWORD error = GetLastError();
        if (tries == 0 || (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) ||
            (GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            SetLastError(error);
            return false;
        }
        Sleep(kPause);
    }
    return true;
}

}  // namespace

void Metrics::Family(const char* name, Type type, const char* help) {
    name_ = name;
    head_ = fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", name, help,
                        type == Type::kCounter ? "counter" : "gauge");
}

void Metrics::Add(const Labels& labels, double value) {
    text_ += head_ + name_;
    head_.clear();
    const char* mark = "{";
    for (const auto& [name, label] : labels) {
        text_ += fmt::format("{}{}=\"{}\"", mark, name, Escaped(label));
        mark = ",";
    }
    // Whole numbers as such: counts of bytes would lose their end in an exponent's form.
    text_ += labels.empty() ? " " : "} ";
    text_ += value >= 0 && value < 1e15 && value == static_cast<double>(static_cast<long long>(value))
                 ? fmt::format("{}\n", static_cast<long long>(value))
                 : fmt::format("{}\n", value);
}

void WriteMetrics(const Metrics& metrics, const std::string& file) {
    if (file.empty() || file == "-") {
        std::string text = metrics.Text();
        if (text.empty()) return;
        text.pop_back();
        Print(text);
        return;
    }
    const std::wstring path = FromUtf8(file);
    // Of another extension, so that nothing collects it.
    const std::wstring draft = path + L"." + std::to_wstring(GetCurrentProcessId()) + L".new";
    if (WriteDraft(draft, metrics.Text()) && Replace(draft, path)) return;
    const std::string reason = ErrorText(GetLastError());
    DeleteFileW(draft.c_str());
    throw CommandError("cannot write " + Shown(file) + ": " + reason);
}

}  // namespace vlm::ctl
