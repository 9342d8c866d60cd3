#include "tools/vlmctl/extension_files/expressions.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "bidi/parameter_text.h"
#include "util/xml_names.h"

namespace vlm::ctl {

void ExpressionChecker::BeginFile(const SourceFile& file, Declarations anywhere) {
    file_ = &file;
    anywhere_ = std::move(anywhere);
    declarations_.clear();
}

void ExpressionChecker::Say(Rule rule, const Spot& spot, std::wstring text) {
    findings_.Add(file_->path, file_->PlaceOf(spot), rule, std::move(text));
}

std::vector<Piece> ExpressionChecker::CheckParameters(const SourceElement& element,
                                                      std::wstring_view attribute, const std::wstring& text,
                                                      const Scope& scope) {
    const ParameterUses used = ReadParameters(text);
    if (used.unpaired) {
        Say(Rule::kUnpairedDollar, {element, attribute, *used.unpaired},
            L"the '$' signs in " + std::wstring(attribute) + L" " + Quoted(text) +
                L" do not enclose a parameter");
        return {};
    }
    for (const Piece& parameter : used.names) {
        if (scope.bindings.contains(parameter.text)) continue;
        Say(Rule::kUnboundParameter, {element, attribute, parameter.at},
            L"no Parameter around it binds " + Quoted(parameter.text) + L", which its " +
                std::wstring(attribute) + L" uses");
    }
    return used.names;
}

void ExpressionChecker::CheckPlainName(const SourceElement& element, const std::wstring& name,
                                       const Scope& scope) {
    for (size_t open = name.find(L'$'); open != std::wstring::npos;) {
        const size_t close = name.find(L'$', open + 1);
        if (close == std::wstring::npos) return;
        const std::wstring parameter = name.substr(open + 1, close - open - 1);
        const bool bound = scope.bindings.contains(parameter);
        if (!bound && IsNcName(parameter)) {
            Say(Rule::kKeptDollar, {element, L"name", open},
                L"the name " + Quoted(name) + L" keeps its '$': no Parameter around it binds " +
                    Quoted(parameter));
        }
        open = bound ? name.find(L'$', close + 1) : close;
    }
}

void ExpressionChecker::CheckQuery(const SourceElement& element) {
    const std::wstring* query = element.Attribute(L"query");
    if (query == nullptr) return;
    const std::optional<QualifiedName> name = ParsePrefixedName(*query);
    if (!name) {
        Say(Rule::kMalformedQuery, {element, L"query"},
            L"the query " + Quoted(*query) + L" does not have the form prefix:name");
        return;
    }
    CheckPrefix({element, L"query", 0}, name->prefix);
}

bool ExpressionChecker::CheckPrefix(const Spot& spot, const std::wstring& prefix) {
    if (prefix == L"xml" || declarations_.contains(prefix)) return true;
    std::wstring text =
        L"the prefix " + Quoted(prefix) + L" in " + std::wstring(spot.attribute) + L" is not declared";
    if (anywhere_.contains(prefix)) text += L" on the Schema element, the only place that counts";
    Say(Rule::kUndeclaredPrefix, spot, std::move(text));
    return false;
}

void ExpressionChecker::CheckFilter(const SourceElement& element, const Scope& scope) {
    const std::wstring filter = element.Value(L"filter");
    if (filter.empty()) return;
    if (element.Attribute(L"query") == nullptr && !scope.queried) {
        Say(Rule::kNoQuery, {element},
            element.name + L" has no 'query': the printer is not asked for what its filter reads");
    }
    const std::vector<Piece> parameters = CheckParameters(element, L"filter", filter, scope);
    CheckQuoted(element, filter, parameters);
    const FilterNames names = ReadFilterNames(filter);
    bool bound = true;
    for (const Piece& prefix : names.prefixes)
        bound = CheckPrefix({element, L"filter", prefix.at}, prefix.text) && bound;
    if (names.unknownFunction) {
        Say(Rule::kUnknownFunction, {element, L"filter", names.unknownFunction->at},
            L"the filter " + Quoted(filter) + L" calls " + Quoted(names.unknownFunction->text) +
                L", which is not an XPath function");
    } else if (bound && !ReadParameters(filter).unpaired) {
        if (const std::optional<size_t> at = compiler_.BreaksAt(filter, declarations_)) {
            Say(Rule::kMalformedFilter, {element, L"filter", *at},
                L"the filter " + Quoted(filter) + L" is not valid XPath after '//'");
        }
    }
    if (bound) CheckStart(element, names);
}

void ExpressionChecker::CheckQuoted(const SourceElement& element, const std::wstring& filter,
                                    const std::vector<Piece>& parameters) {
    for (const std::wstring& name : ParametersOutsideLiterals(filter)) {
        // Its first use may be inside quotes.
        const auto use = std::ranges::find_if(parameters, [&](const Piece& parameter) {
            const size_t end = parameter.at + parameter.text.size() + 2;
            const std::vector<std::wstring> outside = ParametersOutsideLiterals(filter.substr(0, end));
            return !outside.empty() && outside.back() == name && parameter.text == name;
        });
        Say(Rule::kUnquotedParameter, {element, L"filter", use != parameters.end() ? use->at : 0},
            L"the parameter " + Quoted(name) +
                L" is used outside quotes in the filter: a value that is neither a number nor a name "
                L"makes the whole query fail");
    }
}

// A printer sends only the elements that were asked for.
void ExpressionChecker::CheckStart(const SourceElement& element, const FilterNames& names) {
    const std::wstring query = element.Value(L"query");
    const std::optional<QualifiedName> asked = ParsePrefixedName(query);
    if (!asked || !names.first || !declarations_.contains(asked->prefix)) return;
    const QualifiedName& first = *names.first;
    const bool same = first.localName == asked->localName && !first.prefix.empty() &&
                      declarations_[first.prefix] == declarations_[asked->prefix];
    if (same) return;
    Say(Rule::kFilterStart, {element, L"filter", names.firstAt},
        L"the filter starts at " +
            Quoted((first.prefix.empty() ? L"" : first.prefix + L":") + first.localName) +
            L", not at the queried " + Quoted(query));
}

}  // namespace vlm::ctl
