// What a command reads and writes where a FILE stands; "-" is standard input.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "util/handles.h"

namespace vlm::ctl {

// Opens a file whatever others do with it; holds nothing on failure, which is then the last error.
File OpenToRead(const std::wstring& path);
// Appends what comes next and returns how many bytes that is; 0 at the end. Throws CommandError with `name`.
size_t ReadPiece(HANDLE input, const std::string& name, std::string* bytes);

// All bytes of it, `most` at most. Throws CommandError with one line.
std::string ReadInput(const std::string& file, size_t most);

// Writes a whole file, in place of one that is there. Throws CommandError with one line.
void WriteOutput(const std::string& file, const std::string& bytes);

// UTF-16 without a mark, low byte first unless `networkOrder`. In UTF-8.
std::string DecodeUtf16(std::string_view bytes, bool networkOrder = false);

// A text as editors and shells save it: UTF-8 with or without its mark, or UTF-16 with one. In UTF-8.
std::string DecodeText(const std::string& bytes);

// The name of an input for a person.
std::string InputName(const std::string& file);

}  // namespace vlm::ctl
