// What only a printer's answer shows about extension files.
#pragma once

#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/extension_files/findings.h"

namespace vlm::ctl {

// Asks the engine for the whole tree and tells what of the files comes to nothing with this answer. Throws
// CommandError with kUnreadable when there is no answer, and nothing when the engine does not take the files:
// the checker has said why.
void CheckWithAnswer(const BidiSources& sources, FindingList& findings);

}  // namespace vlm::ctl
