// A saved trace, line by line; on request also what is still being written to it.
//
// UTF-8 with or without its mark, or UTF-16 with one, as PowerShell writes what is redirected into a file.
// The writer may go on meanwhile, rename the file and begin a new one, or empty it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "util/handles.h"

namespace vlm::ctl {

class TraceFile {
 public:
    // "-" is standard input. Throws CommandError when the file cannot be read.
    TraceFile(const std::string& name, bool follow);

    enum class Next {
        kLine,
        kNothingYet,  // when it is followed: ask again after a pause
        kEnd,
    };
    // The next line without its end, in UTF-8. One that is longer than any of the trace comes in pieces.
    Next Read(std::string* line);
    // What has come of a line that has no end yet; empty when there is none. For the end of following.
    std::string Rest();

 private:
    bool Fill();
    bool TakeLine(std::string* line);
    bool IsReplaced(File* next) const;
    void FindEncoding();
    std::string Text(size_t size) const;

    const std::wstring path_;  // empty for standard input
    const bool follow_;
    File file_;
    std::uint64_t position_ = 0;
    std::string buffer_;
    size_t taken_ = 0;    // of the buffer
    bool begun_ = false;  // the encoding is known
    bool wide_ = false;
};

}  // namespace vlm::ctl
