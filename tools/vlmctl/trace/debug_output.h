// The debugger output of other programs, as the system hands it to whoever keeps its buffer: that of this
// session, and with an administrator's rights also that of the services, among them the spooler.
//
// One reader at a time. The programs wait until their text has been taken, so a thread of its own takes it at
// once; what the reader is then too slow for is counted and dropped.
#pragma once

#include <windows.h>

#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "util/handles.h"
#include "util/locks.h"

namespace vlm::ctl {

struct DebugLine {
    DWORD process = 0;
    std::string text;  // UTF-8, printable, without the line's end
};

class DebugOutput {
 public:
    // Throws CommandError, when another program listens for one.
    DebugOutput();
    ~DebugOutput();
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    bool HearsServices() const { return hearsServices_; }
    // False when no line comes within the time.
    bool Next(std::chrono::milliseconds wait, DebugLine* line);
    size_t LinesLost();

 private:
    struct Buffer;  // as the system lays it out
    struct ViewTraits {
        using Type = Buffer*;
        static Type Invalid() { return nullptr; }
        static void Close(Type view) { UnmapViewOfFile(view); }
    };
    struct Channel {
        KernelHandle mapping;
        Unique<ViewTraits> buffer;
        KernelHandle ready;  // the buffer is free
        KernelHandle data;   // the buffer is full
    };

    // False when this program may not.
    bool Open(const std::wstring& space);
    void Run();
    void Take(const Channel& channel);

    std::vector<Channel> channels_;
    bool hearsServices_ = false;
    KernelHandle stop_;
    SlimLock lock_;
    CONDITION_VARIABLE arrived_ = CONDITION_VARIABLE_INIT;  // with the lock
    std::deque<DebugLine> lines_ VLM_GUARDED_BY(lock_);
    size_t lost_ VLM_GUARDED_BY(lock_) = 0;
    std::thread thread_;
};

}  // namespace vlm::ctl
