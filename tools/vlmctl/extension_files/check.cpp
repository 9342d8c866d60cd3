#include "tools/vlmctl/extension_files/check.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "tools/vlmctl/extension_files/expressions.h"
#include "tools/vlmctl/extension_files/passed_over.h"
#include "tools/vlmctl/extension_files/vocabulary.h"
#include "util/namespaces.h"
#include "util/trace.h"
#include "util/xml_bounds.h"

namespace vlm::ctl {

namespace {

// Where a leaf is declared. Kept across files, to find duplicates within one file and what a later file
// repeats.
struct Declared {
    const SourceFile* file;
    int line;
    std::wstring element;
};

std::wstring_view Local(std::wstring_view name) {
    return name.substr(name.find(L':') + 1);
}

// "BIDI_INT, BIDI_STRING and BIDI_BOOL"
std::wstring TypeList() {
    std::wstring list(kTypeNames.front());
    for (size_t i = 1; i < kTypeNames.size(); ++i)
        list.append(i + 1 == kTypeNames.size() ? L" and " : L", ").append(kTypeNames[i]);
    return list;
}

// Whether all of the text is one number of that type, with a decimal point whatever the locale.
template <typename Number>
bool Is(const std::wstring& text) {
    std::string digits;
    for (const wchar_t c : text)
        digits.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    if (digits.starts_with('+') && !digits.starts_with("+-")) digits.erase(0, 1);
    Number value = 0;
    const auto [end, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return problem == std::errc() && end == digits.data() + digits.size();
}

// Checks the files of one set. Keeps references to the files.
class Checker {
 public:
    Checker(const std::vector<SourceFile>& files, FindingList& findings)
        : files_(files), findings_(findings), expressions_(findings) {}

    void Run() {
        for (const SourceFile& file : files_)
            CollectDeclarations(file.root);
        for (const SourceFile& file : files_) {
            file_ = &file;
            schemaNames_.clear();
            CheckFile();
            passedOver_.Say(file, findings_);
        }
    }

 private:
    void Say(Rule rule, const Spot& spot, std::wstring text) {
        findings_.Add(file_->path, file_->PlaceOf(spot), rule, std::move(text));
    }

    // The engine merges the Schema elements' declarations, so that one file may use what another declares.
    void CollectDeclarations(const SourceElement& element) {
        if (element.name == L"Schema")
            shared_.insert(element.declarations.begin(), element.declarations.end());
        if (FindRule(element.name) != nullptr) return;
        for (const SourceElement& child : element.children)
            CollectDeclarations(child);
    }

    void CheckFile() {
        const SourceElement& root = file_->root;
        anywhere_.clear();
        uris_.clear();
        CollectAnywhere(root);
        expressions_.BeginFile(*file_, anywhere_);
        CheckBidiNamespace(root);
        const auto isSchema = [](const SourceElement& child) { return child.name == L"Schema"; };
        if (root.name == L"Schema" ||
            (Local(root.name) == L"Schema" && std::ranges::none_of(root.children, isSchema))) {
            CheckSchema(root);
        } else if (FindRule(root.name) != nullptr) {
            Say(Rule::kWrongRoot, {root},
                L"the root is " + root.name + L"; it must be Schema, or the parent of one");
        } else {
            CheckWrapper(root);
        }
        CheckSameRoot(root);
    }

    void CheckBidiNamespace(const SourceElement& root) {
        if (uris_.contains(ns::kBidi)) return;
        std::wstring text = L"the namespace ";
        text += ns::kBidi;
        text += L" is not declared; the engine refuses the file";
        const auto meant = std::ranges::find_if(
            uris_, [](const std::wstring& uri) { return MeantNamespace(uri) == ns::kBidi; });
        if (meant != uris_.end())
            text += L". It declares " + *meant + L", which is another one: write http: instead of https:";
        Say(Rule::kNoBidiNamespace, {root}, std::move(text));
    }

    void CollectAnywhere(const SourceElement& element) {
        anywhere_.insert(element.declarations.begin(), element.declarations.end());
        for (const auto& [prefix, uri] : element.declarations)
            uris_.insert(uri);
        for (const SourceElement& child : element.children)
            CollectAnywhere(child);
    }

    void CheckWrapper(const SourceElement& root) {
        const auto isSchema = [](const SourceElement& child) { return Local(child.name) == L"Schema"; };
        if (std::ranges::none_of(root.children, isSchema)) {
            Say(Rule::kNoSchema, {root}, L"the file has no Schema element");
            return;
        }
        CheckNoText(root);
        for (const SourceElement& child : root.children) {
            if (isSchema(child)) {
                CheckSchema(child);
            } else if (child.name == kPortStatus) {
                passedOver_.LookAt(child);
            } else if (!CheckNamespace(child)) {
                Say(Rule::kUnknownElement, {child},
                    L"unknown element " + Quoted(child.name) + L" next to Schema");
            }
        }
    }

    // The engine merges the roots whatever their names are, so one Schema would end up inside another.
    void CheckSameRoot(const SourceElement& root) {
        const SourceFile& base = files_.front();
        if ((root.name == L"Schema") != (base.root.name == L"Schema")) {
            Say(Rule::kWrongRoot, {root},
                L"the root is " + Quoted(root.name) + L", but that of " + Printable(base.path) + L" is " +
                    Quoted(base.root.name) + L"; the two do not merge");
        }
    }

    void CheckSchema(const SourceElement& schema) {
        if (!CheckShape(schema, *FindRule(L"Schema"))) return;
        const std::wstring key = schema.Value(L"name");
        if (!schemaNames_.insert(key).second) {
            Say(Rule::kSecondSchema, {schema},
                L"a second Schema of the same name; within one file they are not merged");
        }
        if (!firstSchema_) {
            firstSchema_ = key;
        } else if (schema.Attribute(L"name") != nullptr && *firstSchema_ != key) {
            Say(Rule::kOtherSchema, {schema, L"name"},
                L"this Schema is named " + Quoted(key) + L" and the first one " + Quoted(*firstSchema_) +
                    L"; the path '\\' and the action Get reach the first one only");
        }
        for (const auto& [prefix, uri] : schema.declarations) {
            CheckMeaning(schema, prefix, uri);
            const auto other = shared_.find(prefix);
            if (other != shared_.end() && other->second != uri) {
                Say(Rule::kPrefixConflict, {schema, L"xmlns:" + prefix},
                    L"prefix " + Quoted(prefix) + L" stands for " + Quoted(uri) + L" here and for " +
                        Quoted(other->second) + L" in another Schema; the engine refuses the set");
            }
        }
        Declarations declarations = schema.declarations;
        declarations.insert(shared_.begin(), shared_.end());
        expressions_.BeginSchema(std::move(declarations));
        Scope scope;
        scope.path = L"\\";
        WalkChildren(schema, scope);
    }

    // Printers answer in the print service's namespace, even where its documentation spells it differently.
    void CheckMeaning(const SourceElement& schema, const std::wstring& prefix, const std::wstring& uri) {
        const std::wstring meant = MeantNamespace(uri);
        if (meant != ns::kWsdPrint) return;
        const std::wstring text = L"prefix " + Quoted(prefix) + L" stands for " + Quoted(uri) +
                                  L", but printers answer in " + Quoted(meant);
        const std::wstring declaration = L"xmlns:" + prefix;
        if (uri.starts_with(L"https:")) {
            Say(Rule::kHttpsNamespace, {schema, declaration}, text + L": write http: instead of https:");
        } else {
            Say(Rule::kDraftNamespace, {schema, declaration}, text);
        }
    }

    // Whether the element would belong to the vocabulary if it were in no namespace. Reports it if so.
    bool CheckNamespace(const SourceElement& element) {
        const std::wstring local(Local(element.name));
        if (element.namespaceUri.empty() || FindRule(local) == nullptr) return false;
        std::wstring text = element.name + L" is in the namespace " + Quoted(element.namespaceUri) +
                            L"; the engine finds it only outside any namespace";
        if (local != element.name) text += L": write " + local;
        Say(Rule::kElementInNamespace, {element}, std::move(text));
        return true;
    }

    // Checks the element's own attributes, text and name. False if its content is not worth checking.
    bool CheckShape(const SourceElement& element, const ElementRule& rule) {
        if (CheckNamespace(element)) return false;
        for (const SourceAttribute& attribute : element.attributes) {
            CheckKnownAttribute(element, attribute.name, rule);
        }
        for (const std::wstring_view required : rule.required) {
            const std::wstring* value = element.Attribute(required);
            if (value == nullptr) {
                Say(Rule::kMissingAttribute, {element}, element.name + L" has no " + Quoted(required));
            } else if (value->empty()) {
                Say(Rule::kMissingAttribute, {element, required},
                    Quoted(required) + L" of " + element.name + L" is empty");
            }
        }
        if (!rule.holdsText) CheckNoText(element);
        CheckName(element, rule);
        return true;
    }

    void CheckKnownAttribute(const SourceElement& element, const std::wstring& name,
                             const ElementRule& rule) {
        // Editors use these to bind a file to its schema.
        const size_t colon = name.find(L':');
        if (colon != std::wstring::npos) {
            const auto prefix = anywhere_.find(name.substr(0, colon));
            if (prefix != anywhere_.end() && prefix->second == kSchemaInstanceNamespace) return;
        }
        if (!rule.Allows(name)) {
            Say(Rule::kUnknownAttribute, {element, name},
                L"unknown attribute " + Quoted(name) + L" of " + element.name + Belongs(name));
        }
    }

    static std::wstring Belongs(const std::wstring& name) {
        return IsTcpIpName(name) ? L"; it belongs to files for the TCP/IP port monitor" : L"";
    }

    void CheckNoText(const SourceElement& element) {
        if (!element.text.empty())
            Say(Rule::kMisplacedText, {element},
                L"text " + Quoted(element.text) + L" is not allowed in " + Quoted(element.name));
    }

    void CheckName(const SourceElement& element, const ElementRule& rule) {
        const std::wstring* name = element.Attribute(L"name");
        if (name == nullptr) return;
        const std::wstring_view barred = rule.isLeaf || element.name == L"Schema" ? L"'" : L"'\\.:";
        const size_t found = name->find_first_of(barred);
        if (found == std::wstring::npos) return;
        Say(Rule::kUnnameable, {element, L"name", found},
            L"the name " + Quoted(*name) + L" contains " + Quoted(name->substr(found, 1)) +
                L", which no path can contain");
    }

    // Children of Schema, Property and of a Parameter that carries a template.
    void WalkChildren(const SourceElement& parent, const Scope& scope) {
        std::map<std::wstring, int> properties;
        for (const SourceElement& child : parent.children) {
            const ElementRule* rule = FindRule(child.name);
            if (rule == nullptr) {
                if (!CheckNamespace(child))
                    Say(Rule::kUnknownElement, {child},
                        L"unknown element " + Quoted(child.name) + Belongs(child.name));
            } else if (!FindRule(parent.name)->Holds(child.name)) {
                Say(Rule::kMisplacedElement, {child}, child.name + L" is not allowed in " + parent.name);
            } else if (CheckShape(child, *rule)) {
                if (child.name == L"Property") CheckTwice(child, properties);
                Walk(child, *rule, parent, scope);
            }
        }
    }

    void Walk(const SourceElement& element, const ElementRule& rule, const SourceElement& parent,
              const Scope& scope) {
        expressions_.CheckQuery(element);
        if (element.name == L"Parameter") {
            WalkParameter(element, parent, scope);
        } else if (element.name == L"Property") {
            WalkProperty(element, scope);
        } else {
            CheckLeaf(element, rule, scope);
        }
    }

    void CheckTwice(const SourceElement& property, std::map<std::wstring, int>& properties) {
        const std::wstring* name = property.Attribute(L"name");
        if (name == nullptr) return;
        const auto [first, added] = properties.emplace(*name, property.line);
        if (!added) {
            Say(Rule::kRepeatedProperty, {property, L"name"},
                L"Property " + Quoted(*name) + L" is already declared here, in line " +
                    std::to_wstring(first->second) + L"; its path reaches the first one only");
        }
    }

    static bool IsTemplate(const SourceElement& parameter) {
        return parameter.Value(L"name").find(L'$') != std::wstring::npos;
    }

    // A Property, which may be the template of the empty Parameters in it. Each of those may use what the
    // ones before it bind.
    void WalkProperty(const SourceElement& property, const Scope& outer) {
        Scope scope = outer;
        std::vector<const SourceElement*> bindings;
        for (const SourceElement& child : property.children) {
            if (child.name != L"Parameter" || IsTemplate(child)) continue;
            bindings.push_back(&child);
            if (!child.children.empty()) ErrorNeedsName(child);
            expressions_.CheckFilter(child, scope);
            Bind(child, scope);
        }
        CheckLevelName(property, bindings, scope);
        WalkChildren(property, Below(scope, property));
    }

    // A Parameter with a template of its own. Empty ones are checked with the level that they belong to.
    void WalkParameter(const SourceElement& parameter, const SourceElement& parent, const Scope& outer) {
        if (!IsTemplate(parameter)) {
            if (parent.name != L"Property") ErrorNeedsName(parameter);
            return;
        }
        Scope scope = outer;
        expressions_.CheckFilter(parameter, scope);
        Bind(parameter, scope);
        CheckLevelName(parameter, {&parameter}, scope);
        WalkChildren(parameter, Below(scope, parameter));
    }

    void ErrorNeedsName(const SourceElement& parameter) {
        Say(Rule::kParameterNeedsName, {parameter},
            L"a Parameter that makes levels of its own needs a name that uses it, such as '$" +
                Printable(parameter.Value(L"parameter")) + L"$'");
    }

    void Bind(const SourceElement& parameter, Scope& scope) {
        const std::wstring name = parameter.Value(L"parameter");
        if (name.find(L'$') != std::wstring::npos) {
            Say(Rule::kParameterInDollars, {parameter, L"parameter"},
                L"the parameter " + Quoted(name) + L" must be written without '$' where it is bound");
        }
        const auto [outer, added] = scope.bindings.emplace(name, parameter.line);
        if (!added) {
            Say(Rule::kParameterBoundTwice, {parameter, L"parameter"},
                L"the parameter " + Quoted(name) + L" is already bound, in line " +
                    std::to_wstring(outer->second));
        }
        scope.queried = scope.queried || parameter.Attribute(L"query") != nullptr;
    }

    void CheckLevelName(const SourceElement& level, const std::vector<const SourceElement*>& bindings,
                        const Scope& scope) {
        const std::wstring* name = level.Attribute(L"name");
        if (name == nullptr) return;
        if (bindings.empty()) {
            expressions_.CheckPlainName(level, *name, scope);
            return;
        }
        const std::vector<Piece> used = expressions_.CheckParameters(level, L"name", *name, scope);
        for (const SourceElement* binding : bindings) {
            const std::wstring parameter = binding->Value(L"parameter");
            const auto isIt = [&](const Piece& piece) { return piece.text == parameter; };
            if (parameter.empty() || std::ranges::any_of(used, isIt)) continue;
            Say(Rule::kUnusedParameter, {level, L"name"},
                L"the name " + Quoted(*name) + L" does not use the parameter " + Quoted(parameter) +
                    L": the levels that it makes have the same path");
        }
    }

    static Scope Below(Scope scope, const SourceElement& level) {
        const std::wstring* name = level.Attribute(L"name");
        if (scope.path.size() > 1) scope.path += L'.';
        scope.path += name != nullptr ? *name : L"?" + std::to_wstring(level.line);
        return scope;
    }

    void CheckLeaf(const SourceElement& leaf, const ElementRule& rule, const Scope& scope) {
        for (const SourceElement& child : leaf.children) {
            Say(Rule::kMisplacedElement, {child}, Quoted(child.name) + L" is not allowed in " + leaf.name);
        }
        CheckType(leaf, rule);
        passedOver_.LookAt(leaf);
        expressions_.CheckFilter(leaf, scope);
        const std::wstring* name = leaf.Attribute(L"name");
        if (name == nullptr) return;
        expressions_.CheckPlainName(leaf, *name, scope);
        CheckDeclaredOnce(leaf, scope.path + L":" + *name);
    }

    void CheckType(const SourceElement& leaf, const ElementRule& rule) {
        const std::wstring* type = leaf.Attribute(L"type");
        if (type == nullptr) return;
        if (std::find(kTypeNames.begin(), kTypeNames.end(), *type) == kTypeNames.end()) {
            Say(Rule::kUnknownType, {leaf, L"type"},
                L"the type " + Quoted(*type) + L" is not one of " + TypeList());
        } else if (!rule.fixedType.empty() && *type != rule.fixedType) {
            Say(Rule::kFixedType, {leaf, L"type"},
                leaf.name + L" is always " + std::wstring(rule.fixedType) + L", not " + *type);
        } else if (leaf.name == L"Const") {
            CheckConst(leaf, *type);
        }
    }

    // A text such as 'no' may be meant as false, so that is a warning. A number that is not one is an error.
    void CheckConst(const SourceElement& leaf, const std::wstring& type) {
        if (type == L"BIDI_BOOL" && leaf.text != L"true" && leaf.text != L"false") {
            Say(Rule::kNotTrue, {leaf},
                L"the text " + Quoted(leaf.text) + L" counts as false; only 'true' is true");
        } else if (type == L"BIDI_INT" && !Is<int32_t>(leaf.text)) {
            Say(Rule::kNoNumber, {leaf},
                L"the text " + Quoted(leaf.text) +
                    L" is not a 32-bit integer; the answer is the number that it begins with, or 0");
        } else if (type == L"BIDI_FLOAT" && !Is<float>(leaf.text)) {
            Say(Rule::kNoNumber, {leaf},
                L"the text " + Quoted(leaf.text) +
                    L" is not a decimal number; the answer is the number that it begins with, or 0");
        }
    }

    void CheckDeclaredOnce(const SourceElement& leaf, const std::wstring& path) {
        const auto [first, added] = leaves_.emplace(path, Declared{file_, leaf.line, leaf.name});
        if (added) return;
        const Declared& other = first->second;
        const std::wstring where =
            other.file == file_ ? L"in line " + std::to_wstring(other.line)
                                : L"in " + Printable(other.file->path) + L":" + std::to_wstring(other.line);
        const std::wstring text = L"the leaf " + Quoted(path) + L" is already declared " + where;
        const Spot spot{leaf, L"name"};
        if (other.file != file_ && other.element == leaf.name) {
            Say(Rule::kOverriddenLeaf, spot, text + L", and that declaration holds");
        } else {
            Say(Rule::kRepeatedLeaf, spot, text + L"; the path would have two answers");
        }
    }

    const std::vector<SourceFile>& files_;
    FindingList& findings_;
    ExpressionChecker expressions_;
    Declarations shared_;  // of all Schema elements, the first of a prefix
    std::map<std::wstring, Declared> leaves_;
    std::optional<std::wstring> firstSchema_;

    const SourceFile* file_ = nullptr;
    Declarations anywhere_;  // in this file, on any element, the first of a prefix
    std::set<std::wstring> uris_;
    std::set<std::wstring> schemaNames_;
    PassedOver passedOver_;
};

}  // namespace

int CheckReport::Count(Severity severity) const {
    return static_cast<int>(std::ranges::count_if(
        findings, [&](const Finding& finding) { return finding.HowBad() == severity; }));
}

void CheckReport::Add(std::vector<Finding> more) {
    findings.insert(findings.end(), more.begin(), more.end());
    const auto order = [&](const Finding& finding) {
        return std::tuple(std::find(files.begin(), files.end(), finding.file) - files.begin(),
                          finding.place.line, finding.place.column);
    };
    std::ranges::stable_sort(
        findings, [&](const Finding& left, const Finding& right) { return order(left) < order(right); });
}

CheckReport CheckExtensionFiles(const std::vector<std::wstring>& paths) {
    CheckReport report;
    report.files = paths;
    FindingList findings;
    std::vector<SourceFile> files;
    for (const std::wstring& path : paths) {
        std::wstring problem;
        const std::optional<std::string> bytes = ReadFileBytes(path, kExtensionFileLimits.bytes, problem);
        if (!bytes) {
            report.unreadable.push_back(Printable(path) + L" " + problem);
        } else if (std::optional<SourceFile> file = ParseSource(path, *bytes, findings)) {
            files.push_back(std::move(*file));
        }
    }
    if (!files.empty()) Checker(files, findings).Run();
    report.Add(findings.Take());
    return report;
}

}  // namespace vlm::ctl
