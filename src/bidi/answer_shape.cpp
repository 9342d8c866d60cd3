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

// Nodes and characters inside all open elements.
void CountBelow(AnswerShape& shape, const std::vector<OpenElement>& open, size_t nodes, size_t text) {
    shape.nodes += nodes;
    shape.text += text;
    shape.all.nodes += nodes * open.size();
    shape.all.text += text * open.size();
    for (const OpenElement& element : open) {
        element.elements->nodes += nodes;
        element.elements->text += text;
    }
}

// Another child node of the innermost open element.
void CountChild(AnswerShape& shape, std::vector<OpenElement>& open, size_t text) {
    CountBelow(shape, open, 1, text);
    if (!open.empty()) shape.widest = std::max(shape.widest, ++open.back().children);
}

}  // namespace

AnswerShape ShapeOf(std::string_view document) {
    AnswerShape shape;
    std::vector<OpenElement> open;
    MarkupReader reader(document, document.size());
    while (const std::optional<Markup> markup = reader.Next()) {
        if (!markup->before.empty()) CountChild(shape, open, markup->before.size());
        switch (markup->kind) {
            case MarkupKind::kEndTag:
                if (!open.empty()) open.pop_back();
                break;
            case MarkupKind::kStartTag:
            case MarkupKind::kEmptyTag: {
                CountChild(shape, open, 0);
                AnswerShape::Elements& named = shape.byName[std::string(markup->LocalName())];
                ++named.count;
                ++shape.all.count;
                open.push_back({&named});
                shape.depth = std::max(shape.depth, open.size());
                shape.attributes += markup->attributes;
                shape.attributeText += markup->text.size();
                CountBelow(shape, open, markup->attributes, 0);
                if (markup->kind == MarkupKind::kEmptyTag) open.pop_back();
                break;
            }
            default:
                CountChild(shape, open, markup->text.size());
        }
    }
    return shape;
}

}  // namespace vlm
