#include "tools/vlmctl/bidi/source_places.h"

#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/bidi/explanation.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

void Number(const SourceElement& element, std::vector<const SourceElement*>& numbered) {
    numbered.push_back(&element);
    for (const SourceElement& child : element.children)
        Number(child, numbered);
}

}  // namespace

SourcePlaces::SourcePlaces(const std::vector<std::string>& extensions) {
    for (const std::string& extension : extensions) {
        FindingList ignored;
        std::optional<SourceFile> file = ReadSource(extension, ignored);
        if (!file) continue;
        const auto [read, added] = files_.try_emplace(FullPath(extension), Read{*std::move(file), {}});
        if (added) Number(read->second.file.root, read->second.elements);
    }
}

std::optional<SourcePlaces::Source> SourcePlaces::Find(const SchemaElement& declared) const {
    if (declared.file == nullptr) return std::nullopt;
    const auto found = files_.find(*declared.file);
    if (found == files_.end() || declared.number >= found->second.elements.size()) return std::nullopt;
    return Source{found->second.file, *found->second.elements[declared.number]};
}

Declared SourcePlaces::Of(const SchemaElement& declared) const {
    const std::optional<Source> source = Find(declared);
    if (!source) return {ToUtf8(declared.tag), "", 0, 0};
    const Place at = source->file.PlaceOf({source->element});
    return {ToUtf8(declared.tag), ToUtf8(source->file.path), at.line, at.column};
}

}  // namespace vlm::ctl
