// What the checker found, for a person, a program, or whatever shows the results of code checkers.
#pragma once

#include "tools/vlmctl/extension_files/check.h"

namespace vlm::ctl {

// "FILE:LINE:COLUMN: error: TEXT [RULE]", a line each.
void PrintFindings(const CheckReport& report);
void PrintFindingsAsJson(const CheckReport& report);
// A log of SARIF 2.1.0; it holds the files that cannot be read, too.
void PrintFindingsAsSarif(const CheckReport& report);

}  // namespace vlm::ctl
