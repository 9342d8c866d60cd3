#include "tools/vlmctl/trace/trace_file.h"

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/files.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

constexpr size_t kLongestLine = 64 * 1024;  // bytes

bool SameFile(HANDLE one, HANDLE other) {
    BY_HANDLE_FILE_INFORMATION first{};
    BY_HANDLE_FILE_INFORMATION second{};
    return GetFileInformationByHandle(one, &first) && GetFileInformationByHandle(other, &second) &&
           first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
           first.nFileIndexHigh == second.nFileIndexHigh && first.nFileIndexLow == second.nFileIndexLow;
}

}  // namespace

TraceFile::TraceFile(const std::string& name, bool follow)
    : path_(name == "-" ? L"" : FromUtf8(name)), follow_(follow) {
    if (name == "-") {
        if (follow) throw CommandError("--follow needs a file, not standard input", kWrongUsage);
        return;
    }
    file_ = OpenToRead(path_);
    if (!file_) throw CommandError("cannot read " + name);
}

TraceFile::Next TraceFile::Read(std::string* line) {
    for (;;) {
        if (TakeLine(line)) return Next::kLine;
        if (Fill()) continue;
        File next;
        if (follow_) {
            if (!IsReplaced(&next)) return Next::kNothingYet;
            // What came between the last look and the new name.
            if (Fill()) continue;
        }
        *line = Rest();
        if (!line->empty()) return Next::kLine;
        if (!follow_) return Next::kEnd;
        if (next)
            file_ = std::move(next);
        else
            SetFilePointer(file_.Get(), 0, nullptr, FILE_BEGIN);
        position_ = 0;
        begun_ = false;
    }
}

std::string TraceFile::Rest() {
    FindEncoding();
    std::string rest = Text(buffer_.size() - taken_);
    taken_ = buffer_.size();
    return rest;
}

// False at the end.
bool TraceFile::Fill() {
    buffer_.erase(0, taken_);
    taken_ = 0;
    const HANDLE file = path_.empty() ? GetStdHandle(STD_INPUT_HANDLE) : file_.Get();
    const size_t count = ReadPiece(file, path_.empty() ? InputName("-") : ToUtf8(path_), &buffer_);
    position_ += count;
    return count != 0;
}

void TraceFile::FindEncoding() {
    if (begun_) return;
    begun_ = true;
    const std::string_view text = std::string_view(buffer_).substr(taken_);
    wide_ = text.starts_with("\xFF\xFE");
    if (wide_)
        taken_ += 2;
    else if (text.starts_with("\xEF\xBB\xBF"))
        taken_ += 3;
}

bool TraceFile::TakeLine(std::string* line) {
    if (!begun_ && buffer_.size() - taken_ < 3) return false;
    FindEncoding();
    size_t end = buffer_.find('\n', taken_);
    size_t mark = 1;
    if (wide_) {
        mark = 2;
        const auto isEnd = [&] {
            return (end - taken_) % 2 == 0 && end + 1 < buffer_.size() && buffer_[end + 1] == '\0';
        };
        while (end != std::string::npos && !isEnd())
            end = buffer_.find('\n', end + 1);
    }
    if (end == std::string::npos) {
        if (buffer_.size() - taken_ < kLongestLine) return false;
        end = taken_ + kLongestLine;
        mark = 0;
    }
    *line = Text(end - taken_);
    taken_ = end + mark;
    return true;
}

// The next bytes of the buffer, without the carriage return of a line's end.
std::string TraceFile::Text(size_t size) const {
    const std::string_view bytes = std::string_view(buffer_).substr(taken_, size);
    std::string text = wide_ ? DecodeUtf16(bytes) : std::string(bytes);
    if (text.ends_with('\r')) text.pop_back();
    return text;
}

// Whether the name has another file by now, `next`, or the present one was emptied and `next` is none.
bool TraceFile::IsReplaced(File* next) const {
    File named = OpenToRead(path_);
    if (!named) return false;  // renamed, and the new one not yet begun
    if (!SameFile(named.Get(), file_.Get())) {
        *next = std::move(named);
        return true;
    }
    LARGE_INTEGER size{};
    return GetFileSizeEx(file_.Get(), &size) && static_cast<std::uint64_t>(size.QuadPart) < position_;
}

}  // namespace vlm::ctl
