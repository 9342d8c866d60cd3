#include "tools/vlmctl/extension_files/findings.h"

#include <utility>

#include "util/trace.h"

namespace vlm::ctl {

namespace {

constexpr size_t kMostFindings = 500;
constexpr size_t kLongestQuote = 120;

constexpr Severity kError = Severity::kError;
constexpr Severity kWarning = Severity::kWarning;

constexpr RuleText kRules[] = {
    {Rule::kNotWellFormed, "not-well-formed", kError, "The file is not well-formed XML."},
    {Rule::kBeyondLimits, "beyond-limits", kError,
     "The file exceeds the engine's limits, or has a document type declaration."},
    {Rule::kNoBidiNamespace, "no-bidi-namespace", kError,
     "The file does not declare the platform's Bidi namespace, so the engine refuses it."},
    {Rule::kWrongRoot, "wrong-root", kError,
     "The root is neither Schema nor a parent of one, or does not merge with the first file's."},
    {Rule::kNoSchema, "no-schema", kError, "The file has no Schema element."},
    {Rule::kTooManyFindings, "too-many-findings", kError, "There are more findings than are shown."},
    {Rule::kUnknownElement, "unknown-element", kError, "An element does not belong to the format."},
    {Rule::kMisplacedElement, "misplaced-element", kError,
     "An element is in a place where it is not allowed."},
    {Rule::kElementInNamespace, "element-in-namespace", kError,
     "An element of the format is in a namespace, where the engine does not find it."},
    {Rule::kUnknownAttribute, "unknown-attribute", kError, "An attribute does not belong to its element."},
    {Rule::kMissingAttribute, "missing-attribute", kError, "A required attribute is missing or empty."},
    {Rule::kMisplacedText, "misplaced-text", kError, "Text is in a place where it is not allowed."},
    {Rule::kUnknownType, "unknown-type", kError, "A type is not one of the five."},
    {Rule::kFixedType, "fixed-type", kError, "An Installed or a List cannot have this type."},
    {Rule::kNoNumber, "no-number", kError, "The text of a Const is not a number of its type."},
    {Rule::kNotTrue, "not-true", kWarning, "The text of a BIDI_BOOL is neither true nor false."},
    {Rule::kPassedOver, "passed-over", kWarning,
     "Something that only the platform's own port monitor supports has no effect here."},
    {Rule::kUnnameable, "unnameable", kError, "A name contains a character that no path can contain."},
    {Rule::kSecondSchema, "second-schema", kWarning, "A file has two Schema elements of the same name."},
    {Rule::kOtherSchema, "other-schema", kWarning,
     "A Schema does not have the name of the first one, the only one that Get and the path '\\' reach."},
    {Rule::kRepeatedProperty, "repeated-property", kWarning, "Two levels have the same path."},
    {Rule::kRepeatedLeaf, "repeated-leaf", kError, "Two leaves have the same path."},
    {Rule::kOverriddenLeaf, "overridden-leaf", kWarning,
     "A leaf has no effect, because an earlier file declares it."},
    {Rule::kPrefixConflict, "prefix-conflict", kError, "One prefix stands for two namespaces."},
    {Rule::kHttpsNamespace, "https-namespace", kError,
     "A namespace is written with https: instead of http:."},
    {Rule::kDraftNamespace, "draft-namespace", kWarning, "A namespace is one that printers do not use."},
    {Rule::kUndeclaredPrefix, "undeclared-prefix", kError, "A prefix is not declared on the Schema."},
    {Rule::kMalformedQuery, "malformed-query", kError, "A query does not have the form prefix:name."},
    {Rule::kNoQuery, "no-query", kWarning, "The printer is not asked for what a filter reads."},
    {Rule::kFilterStart, "filter-start", kWarning, "A filter starts elsewhere than at the queried element."},
    {Rule::kMalformedFilter, "malformed-filter", kError,
     "A filter is not an XPath expression that selects nodes."},
    {Rule::kUnknownFunction, "unknown-function", kError,
     "A filter calls a function that XPath does not have."},
    {Rule::kParameterInDollars, "parameter-in-dollars", kError, "A parameter is bound with '$' in its name."},
    {Rule::kParameterBoundTwice, "parameter-bound-twice", kError, "An outer Parameter has the same name."},
    {Rule::kParameterNeedsName, "parameter-needs-name", kError,
     "A Parameter with levels of its own has no name that uses it."},
    {Rule::kUnusedParameter, "unused-parameter", kWarning,
     "The levels that a Parameter makes have the same path."},
    {Rule::kUnboundParameter, "unbound-parameter", kError, "A parameter is used that no Parameter binds."},
    {Rule::kUnpairedDollar, "unpaired-dollar", kError, "'$' signs do not enclose a parameter."},
    {Rule::kKeptDollar, "kept-dollar", kWarning, "A name keeps its '$'."},
    {Rule::kUnquotedParameter, "unquoted-parameter", kWarning,
     "A parameter is used outside quotes in a filter, where only numbers and names work."},
    {Rule::kUnusableWithAnswer, "unusable-with-answer", kError,
     "With this printer's answer every query fails."},
    {Rule::kElementNotSent, "element-not-sent", kWarning, "The printer does not send a queried element."},
    {Rule::kNamespaceNotSent, "namespace-not-sent", kWarning,
     "A prefix stands for a namespace that the printer's answer does not use."},
    {Rule::kNothingFound, "nothing-found", kWarning, "A filter finds nothing in the printer's answer."},
};

}  // namespace

std::span<const RuleText> Rules() {
    return kRules;
}

const RuleText& About(Rule rule) {
    return kRules[static_cast<size_t>(rule)];
}

void FindingList::Add(const std::wstring& file, Place place, Rule rule, std::wstring text) {
    if (findings_.size() < kMostFindings) {
        findings_.push_back({file, place, rule, std::move(text)});
    } else if (findings_.size() == kMostFindings) {
        findings_.push_back(
            {file, place, Rule::kTooManyFindings, L"too many findings; the rest are left out"});
    }
}

std::wstring Quoted(std::wstring_view text) {
    return L"'" + Printable(text, kLongestQuote) + L"'";
}

}  // namespace vlm::ctl
