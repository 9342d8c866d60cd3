// What a command reads where a FILE stands: the file, or with "-" what comes on standard input.
#pragma once

#include <cstddef>
#include <string>

namespace vlm::ctl {

// All bytes of it, `most` at most. Throws CommandError with one line.
std::string ReadInput(const std::string& file, size_t most);

// A text as editors and shells save it: UTF-8 with or without its mark, or UTF-16 with one. In UTF-8.
std::string DecodeText(const std::string& bytes);

// The name of an input for a person.
std::string InputName(const std::string& file);

}  // namespace vlm::ctl
