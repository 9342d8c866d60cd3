// A file as it is at one moment: its bytes, and the file itself held so that nobody changes them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "util/handles.h"

namespace vlm::ctl {

// While it lives, nobody can write, replace or delete the file; others may read it and load it.
class HeldFile {
 public:
    // Throws CommandError for what cannot be read, is no file (a folder, a device, a pipe), or has more than
    // `most` bytes.
    HeldFile(const std::wstring& path, size_t most);

    std::span<const std::uint8_t> Bytes() const { return bytes_; }

 private:
    File file_;
    std::vector<std::uint8_t> bytes_;
};

// Puts a file with these bytes in the place of whatever has the name, whole or not at all; a link of that
// name is replaced, not followed. Returns a Win32 code.
DWORD WriteWholeFile(const std::wstring& path, std::span<const std::uint8_t> bytes);

}  // namespace vlm::ctl
