// A first extension file for a printer, made of what it answers.
#pragma once

#include <string>
#include <vector>

namespace vlm::ctl {

struct NewExtension {
    std::string xml;
    size_t leaves = 0;  // declared; parameters make more of them
    size_t parameters = 0;
    std::vector<std::string> elements;  // that the printer will be asked for
    // Elements in no namespace, which no query can name.
    std::vector<std::string> leftOut;
};

// `cleaned` is a printer's answer as CleanPrinterElements makes it with the print service's namespace as
// "pri". Every text and attribute below the elements that it holds becomes the value of a leaf, or a part of
// a List's. COM must be initialised on the thread. Throws CommandError when the answer holds no elements.
NewExtension MakeExtension(const std::string& cleaned, const std::string& source);

}  // namespace vlm::ctl
