#include "tools/vlmctl/bidi/source_places.h"

#include "tools/vlmctl/bidi/engine.h"
#include "tools/vlmctl/bidi/explanation.h"
#include "util/text.h"
#include "util/xml_bounds.h"

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
        std::wstring problem;
        FindingList ignored;
        const std::wstring path = FullPath(extension);
        const auto bytes = ReadFileBytes(path, kExtensionFileLimits.bytes, problem);
        std::optional<SourceFile> file;
        if (bytes) file = ParseSource(FromUtf8(extension), *bytes, ignored);
        if (!file) continue;
        const auto [read, added] = files_.try_emplace(path, Read{*std::move(file), {}});
        if (added) Number(read->second.file.root, read->second.elements);
    }
}

const SourcePlaces::Read* SourcePlaces::Find(const SchemaElement& declared) const {
    if (declared.file == nullptr) return nullptr;
    const auto found = files_.find(*declared.file);
    return found != files_.end() && declared.number < found->second.elements.size() ? &found->second
                                                                                    : nullptr;
}

const SourceFile* SourcePlaces::FileOf(const SchemaElement& declared) const {
    const Read* read = Find(declared);
    return read != nullptr ? &read->file : nullptr;
}

const SourceElement* SourcePlaces::ElementOf(const SchemaElement& declared) const {
    const Read* read = Find(declared);
    return read != nullptr ? read->elements[declared.number] : nullptr;
}

Declared SourcePlaces::Of(const SchemaElement& declared) const {
    Declared place{ToUtf8(declared.tag), "", 0, 0};
    const Read* read = Find(declared);
    if (read == nullptr) return place;
    const Place at = read->file.PlaceOf({*read->elements[declared.number]});
    place.file = ToUtf8(read->file.path);
    place.line = at.line;
    place.column = at.column;
    return place;
}

}  // namespace vlm::ctl
