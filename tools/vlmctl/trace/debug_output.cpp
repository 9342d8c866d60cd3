#include "tools/vlmctl/trace/debug_output.h"

#include <cstring>

#include "tools/vlmctl/console/command.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

constexpr size_t kBufferSize = 4096;
constexpr size_t kMostLines = 100'000;  // that wait for the reader

std::string Failure() {
    return "the debugger output cannot be read: " + ErrorText(GetLastError());
}

}  // namespace

struct DebugOutput::Buffer {
    DWORD process;
    char text[kBufferSize - sizeof(DWORD)];
};

DebugOutput::DebugOutput() : stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    // Services run in session 0; its names are the global ones.
    if (session != 0) Open(L"");
    hearsServices_ = Open(L"Global\\");
    if (channels_.empty() || !stop_) throw CommandError(Failure());
    thread_ = std::thread([this] { Run(); });
}

DebugOutput::~DebugOutput() {
    SetEvent(stop_.Get());
    thread_.join();
}

bool DebugOutput::Open(const std::wstring& space) {
    Channel channel;
    channel.mapping.Reset(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kBufferSize,
                                             (space + L"DBWIN_BUFFER").c_str()));
    const DWORD error = GetLastError();
    if (channel.mapping && error == ERROR_ALREADY_EXISTS)
        throw CommandError("another program is already reading the debugger output");
    if (!channel.mapping) return false;
    channel.buffer.Reset(
        static_cast<Buffer*>(MapViewOfFile(channel.mapping.Get(), FILE_MAP_READ, 0, 0, kBufferSize)));
    channel.ready.Reset(CreateEventW(nullptr, FALSE, FALSE, (space + L"DBWIN_BUFFER_READY").c_str()));
    channel.data.Reset(CreateEventW(nullptr, FALSE, FALSE, (space + L"DBWIN_DATA_READY").c_str()));
    if (!channel.buffer || !channel.ready || !channel.data) return false;
    SetEvent(channel.ready.Get());
    channels_.push_back(std::move(channel));
    return true;
}

void DebugOutput::Run() {
    std::vector<HANDLE> waits = {stop_.Get()};
    for (const Channel& channel : channels_)
        waits.push_back(channel.data.Get());
    for (;;) {
        const DWORD woken =
            WaitForMultipleObjects(static_cast<DWORD>(waits.size()), waits.data(), FALSE, INFINITE);
        if (woken == WAIT_OBJECT_0 || woken >= WAIT_OBJECT_0 + waits.size()) return;
        Take(channels_[woken - WAIT_OBJECT_0 - 1]);
    }
}

void DebugOutput::Take(const Channel& channel) {
    Buffer buffer;
    std::memcpy(&buffer, channel.buffer.Get(), sizeof buffer);
    SetEvent(channel.ready.Get());
    const std::wstring text = FromCodePage({buffer.text, strnlen(buffer.text, sizeof buffer.text)});
    const LockGuard exclusive(lock_);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find_first_of(L"\r\n", begin), text.size());
        if (end > begin) {
            if (lines_.size() < kMostLines)
                lines_.push_back({buffer.process,
                                  ToUtf8(vlm::Printable({text.data() + begin, end - begin}, kBufferSize))});
            else
                ++lost_;
        }
        begin = end + 1;
    }
    WakeConditionVariable(&arrived_);
}

bool DebugOutput::Next(std::chrono::milliseconds wait, DebugLine* line) {
    const ULONGLONG deadline = GetTickCount64() + static_cast<ULONGLONG>(wait.count());
    const LockGuard exclusive(lock_);
    while (lines_.empty()) {
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) return false;
        SleepConditionVariableSRW(&arrived_, &lock_.lock, static_cast<DWORD>(deadline - now), 0);
    }
    *line = std::move(lines_.front());
    lines_.pop_front();
    return true;
}

size_t DebugOutput::LinesLost() {
    const LockGuard exclusive(lock_);
    return lost_;
}

}  // namespace vlm::ctl
