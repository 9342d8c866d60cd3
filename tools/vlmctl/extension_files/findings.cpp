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
    {Rule::kNotWellFormed, "not-well-formed", kError, "The file is no well-formed XML."},
    {Rule::kBeyondLimits, "beyond-limits", kError,
     "The file is larger, deeper or otherwise more than the engine reads, or has a document type."},
    {Rule::kNoBidiNamespace, "no-bidi-namespace", kError,
     "The file does not declare the platform's Bidi namespace, so the engine refuses it."},
    {Rule::kWrongRoot, "wrong-root", kError,
     "The root is neither Schema nor an element around one, or does not merge with the first file's."},
    {Rule::kNoSchema, "no-schema", kError, "The file has no Schema element."},
    {Rule::kTooManyFindings, "too-many-findings", kError, "There are more findings than are shown."},
    {Rule::kUnknownElement, "unknown-element", kError, "An element is none of the format's."},
    {Rule::kMisplacedElement, "misplaced-element", kError, "An element stands where it has no place."},
    {Rule::kElementInNamespace, "element-in-namespace", kError,
     "An element of the format stands in a namespace, where the engine does not find it."},
    {Rule::kUnknownAttribute, "unknown-attribute", kError, "An attribute is none of its element's."},
    {Rule::kMissingAttribute, "missing-attribute", kError, "A required attribute is missing or empty."},
    {Rule::kMisplacedText, "misplaced-text", kError, "Text stands where it has no place."},
    {Rule::kUnknownType, "unknown-type", kError, "A type is none of the five."},
    {Rule::kFixedType, "fixed-type", kError, "An Installed or a List cannot have this type."},
    {Rule::kNoNumber, "no-number", kError, "The text of a Const is not the number that its type says."},
    {Rule::kNotTrue, "not-true", kWarning, "The text of a BIDI_BOOL is neither true nor false."},
    {Rule::kPassedOver, "passed-over", kWarning,
     "What the platform's own port monitor reads, and has no effect here."},
    {Rule::kUnnameable, "unnameable", kError, "A name holds a character that no path can name."},
    {Rule::kSecondSchema, "second-schema", kWarning, "A file has two Schema elements of one name."},
    {Rule::kOtherSchema, "other-schema", kWarning,
     "A Schema is named otherwise than the first one, which alone the whole tree and Get reach."},
    {Rule::kRepeatedProperty, "repeated-property", kWarning, "Two levels have the same path."},
    {Rule::kRepeatedLeaf, "repeated-leaf", kError, "Two leaves have the same path."},
    {Rule::kOverriddenLeaf, "overridden-leaf", kWarning,
     "A leaf has no effect, because an earlier file declares it."},
    {Rule::kPrefixConflict, "prefix-conflict", kError, "One prefix means two namespaces."},
    {Rule::kHttpsNamespace, "https-namespace", kError, "A namespace is written with https: for http:."},
    {Rule::kDraftNamespace, "draft-namespace", kWarning, "A namespace is one that printers do not use."},
    {Rule::kUndeclaredPrefix, "undeclared-prefix", kError, "A prefix is not declared on the Schema."},
    {Rule::kMalformedQuery, "malformed-query", kError, "A query is not of the form prefix:name."},
    {Rule::kNoQuery, "no-query", kWarning, "The printer is not asked for what a filter reads."},
    {Rule::kFilterStart, "filter-start", kWarning, "A filter starts elsewhere than at the queried element."},
    {Rule::kMalformedFilter, "malformed-filter", kError, "A filter is no XPath that selects nodes."},
    {Rule::kUnknownFunction, "unknown-function", kError, "A filter calls what is no function of XPath."},
    {Rule::kParameterInDollars, "parameter-in-dollars", kError, "A parameter is bound with '$' in its name."},
    {Rule::kParameterBoundTwice, "parameter-bound-twice", kError, "An outer Parameter has the same name."},
    {Rule::kParameterNeedsName, "parameter-needs-name", kError,
     "A Parameter with levels of its own has no name that uses it."},
    {Rule::kUnusedParameter, "unused-parameter", kWarning,
     "The levels that a Parameter makes have the same path."},
    {Rule::kUnboundParameter, "unbound-parameter", kError, "No Parameter binds what is used."},
    {Rule::kUnpairedDollar, "unpaired-dollar", kError, "'$' enclose no parameter."},
    {Rule::kKeptDollar, "kept-dollar", kWarning, "A name keeps its '$'."},
    {Rule::kUnquotedParameter, "unquoted-parameter", kWarning,
     "A parameter stands outside quotes in a filter, where only numbers and names may."},
    {Rule::kUnusableWithAnswer, "unusable-with-answer", kError,
     "With this printer's answer every query fails."},
    {Rule::kElementNotSent, "element-not-sent", kWarning, "The printer does not send a queried element."},
    {Rule::kNamespaceNotSent, "namespace-not-sent", kWarning,
     "A prefix means a namespace that the printer's answer does not use."},
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
            {file, place, Rule::kTooManyFindings, L"too many findings; the rest is left out"});
    }
}

std::wstring Quoted(std::wstring_view text) {
    return L"'" + Printable(text, kLongestQuote) + L"'";
}

}  // namespace vlm::ctl
