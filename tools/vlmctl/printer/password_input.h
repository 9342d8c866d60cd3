// A password from whoever runs the program: from the terminal without echo, or from a pipe. Never from the
// command line, where other users of the machine could read it.
#pragma once

#include <string>

namespace vlm::ctl {

// The next line of standard input: typed at a prompt on standard error when that is a console, else as UTF-8.
// An empty line is an empty password. Throws CommandError when there is none, when it is too long or has
// control characters.
std::wstring ReadPassword();

// Overwrites the text where it stands, for when it is not needed any more.
void Wipe(std::wstring* text);

}  // namespace vlm::ctl
