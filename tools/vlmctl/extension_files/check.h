// Tells the author of Bidi extension files what is wrong with them before a printer sees them.
#pragma once

#include <string>
#include <vector>

#include "tools/vlmctl/extension_files/findings.h"

namespace vlm::ctl {

struct CheckReport {
    std::vector<Finding> findings;         // file by file in the order given, line by line
    std::vector<std::wstring> unreadable;  // "a.xml cannot be opened: file not found (2)"

    int Count(Severity severity) const;
    // Adds what was found about the same files, each in its place.
    void Add(std::vector<Finding> more);

    std::vector<std::wstring> files;  // in the order given
};

// Checks the files one by one and as the set that a printer loads, in the order in which it loads them. An
// error is what makes the engine refuse a file, fail a query or answer another value than the author meant; a
// warning is what it lives with. COM must be initialised on the thread. Throws CComErrorEx when MSXML is not
// available.
CheckReport CheckExtensionFiles(const std::vector<std::wstring>& paths);

}  // namespace vlm::ctl
