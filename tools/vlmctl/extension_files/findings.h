// What an author of extension files is told, one line each.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vlm::ctl {

enum class Severity { kWarning, kError };

// The kinds of findings. What each is called and means stands in Rules().
enum class Rule {
    // The file as a whole.
    kNotWellFormed,
    kBeyondLimits,
    kNoBidiNamespace,
    kWrongRoot,
    kNoSchema,
    kTooManyFindings,
    // Its vocabulary.
    kUnknownElement,
    kMisplacedElement,
    kElementInNamespace,
    kUnknownAttribute,
    kMissingAttribute,
    kMisplacedText,
    kUnknownType,
    kFixedType,
    kNoNumber,
    kNotTrue,
    kPassedOver,
    // Names and paths.
    kUnnameable,
    kSecondSchema,
    kOtherSchema,
    kRepeatedProperty,
    kRepeatedLeaf,
    kOverriddenLeaf,
    // Namespaces and what refers to the printer's elements.
    kPrefixConflict,
    kHttpsNamespace,
    kDraftNamespace,
    kUndeclaredPrefix,
    kMalformedQuery,
    kNoQuery,
    kFilterStart,
    kMalformedFilter,
    kUnknownFunction,
    // Parameters.
    kParameterInDollars,
    kParameterBoundTwice,
    kParameterNeedsName,
    kUnusedParameter,
    kUnboundParameter,
    kUnpairedDollar,
    kKeptDollar,
    kUnquotedParameter,
    // What only a printer's answer shows.
    kUnusableWithAnswer,
    kElementNotSent,
    kNamespaceNotSent,
    kNothingFound,
};

struct RuleText {
    Rule rule;
    std::string_view id;  // stable: people suppress and search findings by it
    Severity severity;
    std::string_view text;  // one sentence
};
// All of them, in the order of the enumeration.
std::span<const RuleText> Rules();
const RuleText& About(Rule rule);

// From 1; a column counts characters, a tab as one.
struct Place {
    int line = 1;
    int column = 1;
};

struct Finding {
    std::wstring file;
    Place place;
    Rule rule = Rule::kNotWellFormed;
    std::wstring text;  // printable

    Severity HowBad() const { return About(rule).severity; }
};

// Collects findings, no more than anyone would read: what an absurd file gives has no end.
class FindingList {
 public:
    void Add(const std::wstring& file, Place place, Rule rule, std::wstring text);

    std::vector<Finding> Take() { return std::move(findings_); }

 private:
    std::vector<Finding> findings_;
};

// A text from a file, between apostrophes, printable and not too long.
std::wstring Quoted(std::wstring_view text);

}  // namespace vlm::ctl
