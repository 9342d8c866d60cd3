// One pass over a schema tree with expanded parameters: which leaves does a path name, and what does the
// printer's answer say about each? Within one pass each leaf's filter is compiled and run at most once,
// however many paths reach it.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "bidi/filters.h"
#include "bidi/schema_tree.h"

namespace vlm {

struct LeafAnswer {
    std::wstring type;
    std::optional<std::wstring> text;  // nothing: no value was found
};

struct NamedAnswer {
    std::wstring path;  // of the leaf
    const LeafAnswer* answer;
    const SchemaElement* leaf;
};

class AnswerPass {
 public:
    // Both must outlive the pass, and the pass its answers.
    AnswerPass(const SchemaTree& tree, const AnswerSearch& answer) : tree_(tree), answer_(answer) {}
    AnswerPass(const AnswerPass&) = delete;
    AnswerPass& operator=(const AnswerPass&) = delete;

    // The leaves that the path names, in document order; nothing when the path is unknown. Throws CComErrorEx
    // for a path with an apostrophe, for a filter that cannot be used, and when the search's budget runs out.
    std::optional<std::vector<NamedAnswer>> Collect(const std::wstring& path);

 private:
    // `path` is that of the element, before and after the call.
    void CollectBelow(const SchemaElement& element, std::wstring& path, std::vector<NamedAnswer>& answers);
    void Append(const SchemaElement& leaf, const std::wstring& path, std::vector<NamedAnswer>& answers);
    std::optional<std::wstring> JoinTexts(const SchemaElement& list) const;
    LeafAnswer Evaluate(const SchemaElement& leaf) const;

    const SchemaTree& tree_;
    const AnswerSearch& answer_;
    std::unordered_map<const SchemaElement*, LeafAnswer> known_;
};

}  // namespace vlm
