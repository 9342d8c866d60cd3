#include "tools/vlmctl/extension_files/expressions.h"

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

void ExpressionChecker::Error(const SourceElement& at, std::wstring text) {
    findings_.Error(file_->path, at.line, std::move(text));
}

void ExpressionChecker::Warning(const SourceElement& at, std::wstring text) {
    findings_.Warning(file_->path, at.line, std::move(text));
}

std::vector<std::wstring> ExpressionChecker::CheckParameters(const SourceElement& element,
                                                             std::wstring_view attribute,
                                                             const std::wstring& text, const Scope& scope) {
    const std::optional<std::vector<std::wstring>> used = ParameterNames(text);
    if (!used) {
        Error(element,
              L"the '$' in " + std::wstring(attribute) + L" " + Quoted(text) + L" enclose no parameter");
        return {};
    }
    for (const std::wstring& name : *used) {
        if (scope.bindings.contains(name)) continue;
        Error(element, L"no Parameter around it binds " + Quoted(name) + L", which its " +
                           std::wstring(attribute) + L" uses");
    }
    return *used;
}

void ExpressionChecker::CheckPlainName(const SourceElement& element, const std::wstring& name,
                                       const Scope& scope) {
    std::wstring_view rest = name;
    for (size_t open = rest.find(L'$'); open != std::wstring_view::npos; open = rest.find(L'$')) {
        rest.remove_prefix(open + 1);
        const size_t close = rest.find(L'$');
        if (close == std::wstring_view::npos) return;
        const std::wstring parameter(rest.substr(0, close));
        if (scope.bindings.contains(parameter)) {
            rest.remove_prefix(close + 1);
        } else if (IsNcName(parameter)) {
            Warning(element, L"the name " + Quoted(name) + L" keeps its '$': no Parameter around it binds " +
                                 Quoted(parameter));
        }
    }
}

void ExpressionChecker::CheckQuery(const SourceElement& element) {
    const std::wstring* query = element.Attribute(L"query");
    if (query == nullptr) return;
    const std::optional<QualifiedName> name = ParsePrefixedName(*query);
    if (!name) {
        Error(element, L"the query " + Quoted(*query) + L" is not of the form prefix:name");
        return;
    }
    CheckPrefix(element, L"query", name->prefix);
}

bool ExpressionChecker::CheckPrefix(const SourceElement& element, std::wstring_view attribute,
                                    const std::wstring& prefix) {
    if (prefix == L"xml" || declarations_.contains(prefix)) return true;
    std::wstring text =
        L"the prefix " + Quoted(prefix) + L" in " + std::wstring(attribute) + L" is not declared";
    if (anywhere_.contains(prefix)) text += L" on the Schema element, which is the one place that counts";
    Error(element, std::move(text));
    return false;
}

void ExpressionChecker::CheckFilter(const SourceElement& element, const Scope& scope) {
    const std::wstring* filter = element.Attribute(L"filter");
    if (filter == nullptr || filter->empty()) return;
    if (element.Attribute(L"query") == nullptr && !scope.queried) {
        Warning(element,
                element.name + L" has no 'query': the printer is not asked for what its filter reads");
    }
    CheckParameters(element, L"filter", *filter, scope);
    for (const std::wstring& name : ParametersOutsideLiterals(*filter)) {
        Warning(element,
                L"the parameter " + Quoted(name) +
                    L" stands outside quotes in the filter: a value that is neither a number nor a name "
                    L"fails the whole query");
    }
    const FilterNames names = ReadFilterNames(*filter);
    bool bound = true;
    for (const std::wstring& prefix : names.prefixes)
        bound = CheckPrefix(element, L"filter", prefix) && bound;
    if (names.unknownFunction) {
        Error(element, L"the filter " + Quoted(*filter) + L" calls " + Quoted(*names.unknownFunction) +
                           L", which is no function of XPath");
    } else if (bound && ParameterNames(*filter) && !compiler_.Accepts(*filter, declarations_)) {
        Error(element, L"the filter " + Quoted(*filter) + L" is no XPath behind '//'");
    }
    if (bound) CheckStart(element, names);
}

// A printer sends only the elements that were asked for.
void ExpressionChecker::CheckStart(const SourceElement& element, const FilterNames& names) {
    const std::wstring* query = element.Attribute(L"query");
    const std::optional<QualifiedName> asked = query != nullptr ? ParsePrefixedName(*query) : std::nullopt;
    if (!asked || !names.first || !declarations_.contains(asked->prefix)) return;
    const QualifiedName& first = *names.first;
    const bool same = first.localName == asked->localName && !first.prefix.empty() &&
                      declarations_[first.prefix] == declarations_[asked->prefix];
    if (same) return;
    Warning(element, L"the filter starts at " +
                         Quoted((first.prefix.empty() ? L"" : first.prefix + L":") + first.localName) +
                         L", not at the queried " + Quoted(*query));
}

}  // namespace vlm::ctl
