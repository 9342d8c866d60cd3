#include "tools/vlmctl/bidi/explanation.h"

#include <algorithm>
#include <array>
#include <cwctype>
#include <map>
#include <memory>
#include <set>

#include "bidi/answer_pass.h"
#include "bidi/engine_error.h"
#include "bidi/parameter_text.h"
#include "tools/vlmctl/bidi/source_places.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/exchange/element_document.h"
#include "tools/vlmctl/exchange/wsd_exchange.h"
#include "tools/vlmctl/extension_files/filter.h"
#include "util/namespaces.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

constexpr size_t kMostShown = 8;  // nodes of one filter
constexpr size_t kMostNearest = 3;

// The elements from `from` down to `to`, both included; empty if that is not below.
std::vector<const SchemaElement*> Trail(const SchemaElement& from, const SchemaElement* to) {
    if (&from == to) return {&from};
    for (const SchemaElement& child : from.children) {
        std::vector<const SchemaElement*> rest = Trail(child, to);
        if (rest.empty()) continue;
        rest.insert(rest.begin(), &from);
        return rest;
    }
    return {};
}

// The edit distance, ignoring case.
size_t Distance(const std::wstring& left, const std::wstring& right) {
    std::vector<size_t> row(right.size() + 1);
    for (size_t j = 0; j < row.size(); ++j)
        row[j] = j;
    for (size_t i = 0; i < left.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < right.size(); ++j) {
            const bool same = std::towlower(left[i]) == std::towlower(right[j]);
            const size_t changed = diagonal + (same ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::vector<std::string> Nearest(const std::wstring& path, const std::vector<NamedAnswer>& leaves) {
    const size_t farthest = std::max<size_t>(3, path.size() / 3);
    std::set<std::pair<size_t, std::wstring>> byDistance;
    // A path with the same end elsewhere in the tree counts as near, too.
    const std::wstring tail = path.substr(std::min(path.find_last_of(L".\\"), path.size()));
    for (const NamedAnswer& leaf : leaves) {
        const size_t longer = std::max(path.size(), leaf.path.size());
        const size_t lengths = 2 * longer - path.size() - leaf.path.size();
        const bool sameEnd = tail.size() > 1 && leaf.path.ends_with(tail);
        if ((lengths > farthest && !sameEnd) || longer > 1024) continue;
        const size_t distance = Distance(path, leaf.path);
        if (distance <= farthest || sameEnd) byDistance.emplace(distance, leaf.path);
        if (byDistance.size() > kMostNearest) byDistance.erase(std::prev(byDistance.end()));
    }
    std::vector<std::string> nearest;
    for (const auto& [distance, name] : byDistance)
        nearest.push_back(ToUtf8(name));
    return nearest;
}

// The node's path in the printer's answer, below its ElementData part.
std::string NodePath(IXMLDOMNode* node) {
    std::wstring path;
    ComPtr<IXMLDOMNode> at(node);
    node->AddRef();
    while (at) {
        const DOMNodeType type = TypeOf(at.Get());
        const std::wstring name = NameOf(at.Get());
        if (type == NODE_DOCUMENT || name.ends_with(L":ElementData") || name == L"ElementData") break;
        std::wstring step = type == NODE_ATTRIBUTE ? L"@" + name : type == NODE_ELEMENT ? name : L"text()";
        ComPtr<IXMLDOMNode> parent;
        at->selectSingleNode(_bstr_t(L".."), parent.Receive());
        const auto alike = [&](const std::wstring& axis) {
            return NodesAt(at.Get(), (axis + L"::*[name()='" + name + L"']").c_str()).size();
        };
        const size_t before = type == NODE_ELEMENT ? alike(L"preceding-sibling") : 0;
        if (before > 0 || (type == NODE_ELEMENT && alike(L"following-sibling") > 0))
            step += L"[" + std::to_wstring(before + 1) + L"]";
        path = path.empty() ? step : step + L"/" + path;
        at = std::move(parent);
    }
    return ToUtf8(path);
}

class Explainer {
 public:
    Explainer(const BidiSources& sources, const std::string& path)
        : sources_(sources), path_(FromUtf8(path)), places_(sources.extensions) {
        explanation_.path = path;
    }

    Explanation Run() {
        const std::vector<std::string> path{explanation_.path};
        const std::vector<std::string> wholeTree{"\\"};
        query_ = std::make_unique<EngineQuery>(sources_, path);
        if (sources_.printerAnswer.empty() && sources_.printerUrl.empty()) {
            ExplainDeclared();
            return std::move(explanation_);
        }
        try {
            inFiles_ = query_->FindNeeded();
            query_->Bind();
            explanation_.answer = query_->Ask(L"Get").front();
            explanation_.asked = true;
            if (!inFiles_) {
                // The files do not have the path, so nothing was asked for. The whole tree shows what they
                // have instead.
                query_ = std::make_unique<EngineQuery>(sources_, wholeTree);
                query_->FindNeeded();
                query_->Bind();
            }
        } catch (const CommandError& error) {
            explanation_.why = error.what();
            DescribeDeclared();
            return std::move(explanation_);
        }
        AnswerPass pass(*query_->Engine().Expanded(), Answer());
        const std::vector<NamedAnswer> leaves = pass.Collect(L"\\").value_or(std::vector<NamedAnswer>());
        const auto named =
            std::ranges::find_if(leaves, [&](const NamedAnswer& leaf) { return leaf.path == path_; });
        if (named != leaves.end()) {
            DescribeTrail(Trail(Expanded().Root(), named->leaf));
            if (named->answer->text) explanation_.text = ToUtf8(*named->answer->text);
            JudgeLeaf(*named->leaf, *named->answer);
        } else {
            DescribeMissing();
            if (explanation_.verdict != Verdict::kLevel) explanation_.nearest = Nearest(path_, leaves);
        }
        return std::move(explanation_);
    }

 private:
    const SchemaTree& Expanded() const { return *query_->Engine().Expanded(); }
    const AnswerSearch& Answer() const { return *query_->Engine().Search(); }

    void Judge(Verdict verdict, std::string why) {
        explanation_.verdict = verdict;
        explanation_.why = std::move(why);
    }

    void ExplainDeclared() {
        query_->FindNeeded();
        if (DescribeDeclared()) {
            return Judge(Verdict::kDeclared,
                         "the extension files declare it; no printer's answer was given to look it up in "
                         "(--wsd FILE or --printer URL)");
        }
        Judge(Verdict::kNotInFiles, "the extension files have no such path");
        std::vector<NamedAnswer> leaves;
        for (const SchemaElement* schema : query_->Engine().Declared()->Schemas())
            CollectLeaves(*schema, L"\\", leaves);
        explanation_.nearest = Nearest(path_, leaves);
    }

    static void CollectLeaves(const SchemaElement& level, const std::wstring& path,
                              std::vector<NamedAnswer>& leaves) {
        for (const SchemaElement& child : level.children) {
            const std::wstring separator = path == L"\\" ? L"" : child.IsLeaf() ? L":" : L".";
            const std::wstring below = path + separator + child.name.value_or(L"");
            if (child.IsLeaf()) leaves.push_back({below, nullptr, &child});
            CollectLeaves(child, below, leaves);
        }
    }

    // Describes the path as the files declare it. False if they do not have it.
    bool DescribeDeclared() {
        if (path_.find(L'\'') != std::wstring::npos) return false;
        const SchemaTree& tree = *query_->Engine().Declared();
        const auto reached = tree.FindForQuery(ParseSchemaPath(path_));
        if (!reached) return false;
        for (const SchemaElement* element : Trail(tree.Root(), reached->elements.front())) {
            if (element->kind <= ElementKind::kSchema) continue;
            Step& step = AddStep(*element, *element);
            std::vector<const SchemaElement*> parameters = element->Bindings();
            if (element->IsTemplate()) parameters.insert(parameters.begin(), element);
            for (const SchemaElement* parameter : parameters)
                step.bindings.push_back(StepOf(*parameter, AsDeclared(*parameter)));
            if (HasFilter(*element)) step.search = AsDeclared(*element);
        }
        return true;
    }

    Step& AddStep(const SchemaElement& element, const SchemaElement& declared) {
        return explanation_.steps.emplace_back(
            Step{ToUtf8(element.name.value_or(L"")), places_.Of(declared), {}, {}});
    }

    BindingStep StepOf(const SchemaElement& parameter, Search search) const {
        return {ToUtf8(parameter.parameter.value_or(L"")), places_.Of(parameter), std::move(search), {}};
    }

    static bool HasFilter(const SchemaElement& element) {
        return element.IsLeaf() && element.kind != ElementKind::kConst;
    }

    static Search AsDeclared(const SchemaElement& element) {
        Search search;
        search.query = ToUtf8(element.query.value_or(L""));
        search.filter = ToUtf8(element.filter.value_or(L""));
        return search;
    }

    void DescribeTrail(const std::vector<const SchemaElement*>& trail) {
        for (const SchemaElement* element : trail) {
            if (element->kind <= ElementKind::kSchema) continue;
            Step& step = AddStep(*element, *element->declared);
            for (const BoundParameter& bound : element->bound) {
                step.bindings.push_back(StepOf(*bound.parameter, Run(*bound.parameter, *bound.filter)));
                step.bindings.back().node = bound.node;
                parameters_[bound.parameter->parameter.value_or(L"")] = bound.value;
            }
            if (HasFilter(*element)) step.search = Run(*element->declared, element->filter.value_or(L""));
        }
    }

    Search Run(const SchemaElement& declared, const std::wstring& filter) const {
        Search search = AsDeclared(declared);
        search.filter = ToUtf8(filter);
        search.tried = true;
        if (declared.query) search.sent = IsSent(*declared.query, declared);
        const ComPtr<IXMLDOMNodeList> nodes = Answer().All(filter, declared);
        while (const ComPtr<IXMLDOMNode> node = NextNode(nodes.Get())) {
            if (search.count++ >= kMostShown) continue;
            search.found.push_back(ToUtf8(TextOf(node.Get())));
            search.nodes.push_back(NodePath(node.Get()));
        }
        return search;
    }

    bool IsSent(const std::wstring& query, const SchemaElement& declared) const {
        return ParsePrefixedName(query) &&
               Answer().First(L"*[local-name()='ElementData']/" + query, declared).Get() != nullptr;
    }

    void JudgeLeaf(const SchemaElement& leaf, const LeafAnswer& answer) {
        if (explanation_.answer.result == ERROR_SUCCESS) return Judge(Verdict::kFound, "found");
        if (!inFiles_) {
            return Judge(Verdict::kNotAsked,
                         "a name on the path contains '.', ':' or '\\', so only a query for the whole tree "
                         "answers it");
        }
        if (answer.text) {
            return Judge(Verdict::kNoConversion,
                         leaf.type == L"BIDI_BLOB"
                             ? "the filter finds base64, and this version answers no binary values"
                             : "the type " + Shown(leaf.type.value_or(L"")) + " is unknown");
        }
        const Step& last = explanation_.steps.back();
        if (last.search) JudgeSearch(*last.search, *leaf.declared);
    }

    // Finds out why a search found nothing.
    void JudgeSearch(const Search& search, const SchemaElement& declared) {
        const std::wstring read = ReadsUnasked(search);
        if (query_->Needed().empty()) {
            Judge(Verdict::kNotAsked,
                  "nothing on the path has a query, so the printer is not asked for anything");
        } else if (!read.empty()) {
            Judge(Verdict::kNotAsked,
                  "the filter reads " + ToUtf8(read) + ", which no query on the path asks for");
        } else if (search.sent == false) {
            Judge(Verdict::kNotSent, "the printer did not send " + search.query);
        } else if (FoundInTheRest(search, declared)) {
            Judge(Verdict::kNotAsked,
                  "the saved answer holds what the filter reads in an element that no query "
                  "on the path asks for");
        } else {
            Judge(Verdict::kNothingFound, "the filter finds nothing in what the printer sent");
        }
    }

    // The element that the filter starts at, if it is one that can be asked for and was not; else empty.
    std::wstring ReadsUnasked(const Search& search) {
        const FilterNames names = ReadFilterNames(FromUtf8(search.filter));
        if (!names.first) return {};
        std::vector<NamespaceDeclaration> prefixes;
        query_->Engine().GetPrefixes(&prefixes);
        std::map<std::wstring, std::wstring> uris;
        for (const NamespaceDeclaration& one : prefixes)
            uris.emplace(one.prefix, one.uri);
        const auto meaning = [&](const QualifiedName& name) {
            return uris[name.prefix] + L' ' + name.localName;
        };
        const std::wstring first = meaning(*names.first);
        for (const std::string& needed : query_->Needed()) {
            const auto name = ParsePrefixedName(FromUtf8(needed));
            if (name && meaning(*name) == first) return {};
        }
        const bool known = std::ranges::any_of(kPrintServiceElements, [&](const char* element) {
            return first == std::wstring(ns::kWsdPrint) + L' ' + FromUtf8(element);
        });
        if (!known && !IsQueriedAnywhere(query_->Engine().Declared()->Root(), first, meaning)) return {};
        return names.first->prefix + L':' + names.first->localName;
    }

    template <typename Meaning>
    static bool IsQueriedAnywhere(const SchemaElement& element, const std::wstring& name, Meaning meaning) {
        const auto query = element.query ? ParsePrefixedName(*element.query) : std::nullopt;
        if (query && meaning(*query) == name) return true;
        return std::ranges::any_of(element.children, [&](const SchemaElement& child) {
            return IsQueriedAnywhere(child, name, meaning);
        });
    }

    // Whether the filter finds something in the parts of a saved answer that no query asks for.
    bool FoundInTheRest(const Search& search, const SchemaElement& declared) const {
        if (!sources_.printerUrl.empty() || sources_.wholeAnswer) return false;
        BidiSources whole = sources_;
        whole.wholeAnswer = true;
        EngineQuery query(whole, {explanation_.path});
        query.FindNeeded();
        query.Bind();
        return query.Engine().Search()->First(FromUtf8(search.filter), declared).Get() != nullptr;
    }

    // Describes the path as far as it exists.
    void DescribeMissing() {
        const SchemaPath path = ParseSchemaPath(path_);
        const SchemaElement* reached = Expanded().Find(path);
        if (reached != nullptr) {
            DescribeTrail(Trail(Expanded().Root(), reached));
            if (reached->IsLeaf()) {
                return Judge(Verdict::kOtherSchema,
                             "the leaf is spelled differently, or is in a Schema that Get does not reach");
            }
            return Judge(Verdict::kLevel, "the path leads to a level, which has no value of its own");
        }
        SchemaPath prefix{path.properties, std::nullopt};
        while ((reached = Expanded().Find(prefix)) == nullptr && !prefix.properties.empty())
            prefix.properties.pop_back();
        const bool atLeaf = prefix.properties.size() == path.properties.size();
        const std::wstring missing(atLeaf ? path.leaf.value_or(L"")
                                          : path.properties[prefix.properties.size()]);
        if (reached != nullptr) {
            DescribeTrail(Trail(Expanded().Root(), reached));
            if (!atLeaf && reached->declared != nullptr) DescribeMakers(*reached->declared);
        }
        JudgeMissing(Shown(missing));
    }

    // Describes the Parameters that make levels in this one.
    void DescribeMakers(const SchemaElement& level) {
        const auto describe = [&](const SchemaElement& binding) {
            const std::wstring filter = binding.filter.value_or(L"");
            const Replacement replaced = ReplaceInFilter(filter, parameters_);
            // Empty Parameters of one level may use each other. Without those values there is no filter to
            // run.
            if (replaced.problem != ReplaceProblem::kNone) return;
            explanation_.makesHere.push_back(StepOf(binding, Run(binding, replaced.text)));
            if (firstMaker_ == nullptr) firstMaker_ = &binding;
        };
        for (const SchemaElement& child : level.children) {
            if (child.IsTemplate()) describe(child);
            if (child.kind != ElementKind::kProperty) continue;
            for (const SchemaElement& binding : child.children) {
                if (binding.IsBinding()) describe(binding);
            }
        }
    }

    void JudgeMissing(const std::string& missing) {
        if (!inFiles_ || explanation_.makesHere.empty())
            return Judge(Verdict::kNotInFiles, "the extension files have no '" + missing + "' there");
        for (const BindingStep& binding : explanation_.makesHere) {
            if (binding.search.count > 0)
                return Judge(Verdict::kNotMade, "the parameter " + binding.parameter + " makes no level '" +
                                                    missing + "' there");
        }
        JudgeSearch(explanation_.makesHere.front().search, *firstMaker_);
    }

    const ComApartment apartment_{COINIT_MULTITHREADED};
    const BidiSources& sources_;
    const std::wstring path_;
    std::unique_ptr<EngineQuery> query_;
    const SourcePlaces places_;
    bool inFiles_ = true;
    Parameters parameters_;                      // bound on the way
    const SchemaElement* firstMaker_ = nullptr;  // of makesHere
    Explanation explanation_;
};

}  // namespace

const char* VerdictName(Verdict verdict) {
    static constexpr std::array kNames{"found",         "level",         "not-in-files", "not-made",
                                       "other-schema",  "not-asked-for", "not-sent",     "nothing-found",
                                       "no-conversion", "declared",      "failed"};
    return kNames[static_cast<size_t>(verdict)];
}

Explanation Explain(const BidiSources& sources, const std::string& path) {
    try {
        return Explainer(sources, path).Run();
    } catch (const CComErrorEx& error) {
        throw CommandError("the explanation failed: " + ToUtf8(error.Reason()));
    }
}

}  // namespace vlm::ctl
