// How a command ends, the same for all of them; the README has the table.
#pragma once

namespace vlm::ctl {

enum ExitStatus : int {
    kDone = 0,  // done; found; allowed; in order
    kFailed =
        1,  // not done, and one line on standard error says why; or the answer is no, or something is wrong
    kWrongUsage = 2,     // the command line makes no sense, and nothing was asked or sent
    kNothingFound = 3,   // asked and answered, and nothing of what was asked for is there
    kInterrupted = 130,  // Ctrl+C; one line says what was done by then
};

// "bidi check" grades files, as compilers' front ends do, and so has meanings of its own for the numbers
// above 0.
enum CheckStatus : int {
    kOnlyWarnings = 1,
    kErrors = 2,
    kUnreadable = 3,
};

}  // namespace vlm::ctl
