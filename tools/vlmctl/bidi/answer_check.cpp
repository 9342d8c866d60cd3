#include "tools/vlmctl/bidi/answer_check.h"

#include <map>
#include <memory>
#include <set>

#include "bidi/answer_pass.h"
#include "tools/vlmctl/bidi/source_places.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/extension_files/filter.h"
#include "tools/vlmctl/extension_files/vocabulary.h"
#include "util/comerror.h"
#include "util/namespaces.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

class AnswerChecker {
 public:
    AnswerChecker(const EngineQuery& query, const SourcePlaces& places, FindingList& findings)
        : engine_(query.Engine()), places_(places), findings_(findings) {}

    void Run() {
        CheckNamespaces();
        CheckQueries(engine_.Declared()->Root());
        CollectBound(engine_.Expanded()->Root());
        CheckParameters(engine_.Declared()->Root());
        CheckLeaves();
    }

 private:
    void Say(Rule rule, const SchemaElement& declared, std::wstring_view attribute, std::wstring text) {
        if (const auto source = places_.Find(declared))
            findings_.Add(source->file.path, source->file.PlaceOf({source->element, attribute}), rule,
                          std::move(text));
    }

    bool Finds(const std::wstring& filter, const SchemaElement& cause) const {
        return engine_.Search()->First(filter, cause).Get() != nullptr;
    }

    void CheckNamespaces() {
        for (const SchemaElement* schema : engine_.Declared()->Schemas()) {
            for (const NamespaceDeclaration& one : schema->namespaces) {
                const bool ofPrinter = !one.prefix.empty() && one.uri != ns::kBidi &&
                                       one.uri != kSchemaInstanceNamespace &&
                                       one.uri.find(L'\'') == std::wstring::npos;
                if (!ofPrinter) continue;
                const std::wstring is = L"[namespace-uri()='" + one.uri + L"']";
                if (Finds(L"*" + is, *schema) || Finds(L"@*" + is, *schema)) continue;
                Say(Rule::kNamespaceNotSent, *schema, L"xmlns:" + one.prefix,
                    L"prefix " + Quoted(one.prefix) + L" stands for " + Quoted(one.uri) +
                        L", and nothing that the printer sends is in that namespace");
            }
        }
    }

    // Each element once, where it is asked for first.
    void CheckQueries(const SchemaElement& element) {
        if (element.query && ParsePrefixedName(*element.query)) {
            const auto [sent, first] = sent_.try_emplace(*element.query, false);
            if (first) {
                sent->second = Finds(L"*[local-name()='ElementData']/" + *element.query, element);
                if (!sent->second)
                    Say(Rule::kElementNotSent, element, L"query",
                        L"the printer does not send " + Quoted(*element.query));
            }
        }
        for (const SchemaElement& child : element.children)
            CheckQueries(child);
    }

    bool IsSent(const SchemaElement& element) const {
        const auto sent = element.query ? sent_.find(*element.query) : sent_.end();
        return sent == sent_.end() || sent->second;
    }

    void CollectBound(const SchemaElement& element) {
        for (const BoundParameter& bound : element.bound)
            bound_.insert(bound.parameter);
        for (const SchemaElement& child : element.children)
            CollectBound(child);
    }

    // What stands inside a Parameter that finds nothing is not looked at: it is never made.
    void CheckParameters(const SchemaElement& element) {
        for (const SchemaElement& child : element.children) {
            if (child.kind == ElementKind::kParameter && !bound_.contains(&child)) {
                SayNothingFound(child);
                if (child.IsBinding()) return;
            } else {
                CheckParameters(child);
            }
        }
    }

    void CheckLeaves() {
        // Of those that parameters repeat, one with a value is enough.
        std::map<const SchemaElement*, bool> found;
        AnswerPass pass(*engine_.Expanded(), *engine_.Search());
        const auto answers = pass.Collect(L"\\");
        for (const NamedAnswer& leaf : answers.value_or(std::vector<NamedAnswer>())) {
            const bool nothing = !leaf.answer->text || (leaf.leaf->kind == ElementKind::kInstalled &&
                                                        *leaf.answer->text == L"false");
            found[leaf.leaf->declared] |= !nothing;
        }
        for (const auto& [leaf, any] : found) {
            if (!any) SayNothingFound(*leaf);
        }
    }

    void SayNothingFound(const SchemaElement& declared) {
        if (!IsSent(declared)) return;
        std::wstring text = L"the filter " + Quoted(declared.filter.value_or(L"")) +
                            L" finds nothing in the printer's answer";
        if (declared.kind == ElementKind::kInstalled) text += L", so it is answered with false";
        Say(Rule::kNothingFound, declared, L"filter", std::move(text));
    }

    const CVelunBidiSpl& engine_;
    const SourcePlaces& places_;
    FindingList& findings_;
    std::map<std::wstring, bool> sent_;     // by query
    std::set<const SchemaElement*> bound_;  // Parameters that made something
};

}  // namespace

void CheckWithAnswer(const BidiSources& sources, FindingList& findings) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    const std::vector<std::string> wholeTree{"\\"};
    std::unique_ptr<EngineQuery> query;
    try {
        query = std::make_unique<EngineQuery>(sources, wholeTree);
        query->FindNeeded();
    } catch (const CommandError&) {
        return;
    }
    try {
        query->Fetch();
    } catch (const CommandError& error) {
        throw CommandError(error.what(), error.Status() == kFailed ? kUnreadable : error.Status());
    }
    const auto fails = [&](const std::wstring& why) {
        findings.Add(FromUtf8(sources.extensions.front()), {}, Rule::kUnusableWithAnswer,
                     L"with this printer's answer " + why);
    };
    try {
        query->Bind();
        AnswerChecker(*query, SourcePlaces(sources.extensions), findings).Run();
    } catch (const CommandError& error) {
        fails(FromUtf8(error.what()));
    } catch (const CComErrorEx& error) {
        fails(L"the query failed: " + error.Reason());
    }
}

}  // namespace vlm::ctl
