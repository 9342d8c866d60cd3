// Why the engine answers a path as it does: the same query, with what each step found on the way.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/vlmctl/bidi/engine.h"

namespace vlm::ctl {

// All text is UTF-8.

struct Declared {
    std::string element;  // "Value"
    std::string file;     // as it was given
    int line = 0;
    int column = 0;
};

// A filter run in the printer's answer.
struct Search {
    std::string query;               // the element to ask for; empty without one
    std::optional<bool> sent;        // whether the printer sent that; empty without an answer
    std::string filter;              // with the values of its parameters; without an answer as declared
    std::vector<std::string> found;  // the texts of the first nodes that it found,
    std::vector<std::string> nodes;  // and where those stand
    size_t count = 0;                // of all
    bool tried = false;              // false: there was no answer to run it in
};

struct BindingStep {
    std::string parameter;
    Declared declared;
    Search search;
    std::optional<size_t> node;  // of those found, the one that made the level on the path, from 0
};

// One name of the path.
struct Step {
    std::string name;
    Declared declared;
    std::vector<BindingStep> bindings;  // that made the level
    std::optional<Search> search;       // of a leaf
};

enum class Verdict {
    kFound,
    kLevel,        // the path leads to a level
    kNotInFiles,   // the extension files have nothing of that name
    kNotMade,      // a parameter makes levels there, but none of that name
    kOtherSchema,  // the leaf stands in a Schema that "Get" does not reach
    kNotAsked,     // nothing asks the printer for what the filter reads
    kNotSent,      // the printer did not send the element
    kNothingFound,
    kNoConversion,  // the text does not become a value of the type
    kDeclared,      // the path is in the extension files; no answer was given to look it up in
    kFailed,        // the whole query
};
// "not-sent".
const char* VerdictName(Verdict verdict);

struct Explanation {
    std::string path;
    std::vector<Step> steps;             // as far as the path leads
    std::vector<BindingStep> makesHere;  // where it ends early: what makes levels there
    Verdict verdict = Verdict::kFailed;
    std::string why;                   // a sentence
    std::vector<std::string> nearest;  // leaves with similar paths
    BidiAnswer answer;                 // what "Get" gives, where it was asked;
    bool asked = false;                // not without a printer's answer, nor after a failure of the query
    std::optional<std::string> text;   // that the value was made of
};

// Without an answer in `sources`: what the extension files alone say of the path. Throws CommandError when
// the extension files cannot be used.
Explanation Explain(const BidiSources& sources, const std::string& path);

}  // namespace vlm::ctl
