// One pass over a schema tree with expanded parameters: which leaves does a path name, and what does the
// printer's answer say about each? Within one pass each leaf's filter is compiled and run at most once,
// however many paths reach it.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "bidi/schema_tree.h"
#include "util/vlxml.h"

namespace vlm {

struct LeafAnswer {
    std::wstring type;
    std::optional<std::wstring> text;  // nothing: no value was found
};

struct NamedAnswer {
    std::wstring path;  // of the leaf
    const LeafAnswer* answer;
};

class AnswerPass {
 public:
    // Both must outlive the pass, and the pass its answers.
    AnswerPass(const SchemaTree& tree, const CXMLDoc& wsd) : tree_(tree), wsd_(wsd) {}
    AnswerPass(const AnswerPass&) = delete;
    AnswerPass& operator=(const AnswerPass&) = delete;

    // The leaves that the path names, in document order; nothing when the path is unknown. Throws CComErrorEx
    // for a path with an apostrophe and for a filter that cannot be used.
    std::optional<std::vector<NamedAnswer>> Collect(const std::wstring& path);

 private:
    void CollectBelow(const SchemaElement& element, const std::wstring& path,
                      std::vector<NamedAnswer>& answers);
    const LeafAnswer& Answer(const SchemaElement& leaf);
    LeafAnswer Evaluate(const SchemaElement& leaf) const;

    const SchemaTree& tree_;
    const CXMLDoc& wsd_;
    std::unordered_map<const SchemaElement*, LeafAnswer> known_;
};

}  // namespace vlm
