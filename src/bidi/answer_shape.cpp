#include "bidi/answer_shape.h"

#include <algorithm>
#include <vector>

#include "util/xml_markup.h"

namespace vlm {

namespace {

struct OpenElement {
    AnswerShape::Elements* elements;  // those of its name
    size_t children = 0;
};

// Another child node of the innermost open element.
void CountNode(AnswerShape& shape, std::vector<OpenElement>& open) {
    ++shape.nodes;
    shape.ancestors += open.size();
    if (!open.empty()) shape.widest = std::max(shape.widest, ++open.back().children);
}

void CountText(AnswerShape& shape, std::vector<OpenElement>& open, size_t length) {
    if (length == 0) return;
    CountNode(shape, open);
    shape.text += length;
    shape.all.text += length * open.size();
    for (const OpenElement& element : open)
        element.elements->text += length;
}

}  // namespace

AnswerShape ShapeOf(std::string_view document) {
    AnswerShape shape;
    std::vector<OpenElement> open;
    MarkupReader reader(document, document.size());
    while (const std::optional<Markup> markup = reader.Next()) {
        CountText(shape, open, markup->before.size());
        switch (markup->kind) {
            case MarkupKind::kEndTag:
                if (!open.empty()) open.pop_back();
                break;
            case MarkupKind::kStartTag:
            case MarkupKind::kEmptyTag: {
                CountNode(shape, open);
                AnswerShape::Elements& named = shape.byName[std::string(markup->LocalName())];
                ++named.count;
                ++shape.all.count;
                shape.nodes += markup->attributes;
                shape.ancestors += markup->attributes * (open.size() + 1);
                shape.attributes += markup->attributes;
                shape.text += markup->text.size();
                shape.depth = std::max(shape.depth, open.size() + 1);
                if (markup->kind == MarkupKind::kStartTag) open.push_back({&named});
                break;
            }
            default:
                CountText(shape, open, markup->text.size());
        }
    }
    return shape;
}

}  // namespace vlm
