// What the Bidi commands found out, as a table for a person or as JSON for a program.
#pragma once

#include <vector>

#include "tools/vlmctl/bidi/containers.h"
#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/bidi/explanation.h"

namespace vlm::ctl {

// Says each entry's source where it is known.
void PrintAnswers(const std::vector<BidiAnswer>& answers, bool json);
// Says whether the printer answered each element where it was asked.
void PrintElements(const std::vector<NeededElement>& elements, bool json);

void PrintExplanation(const Explanation& explanation, bool json);

}  // namespace vlm::ctl
