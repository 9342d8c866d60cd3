// Any bytes as a printer's answer, with limits so small that they are reached: what is let through shows no
// parser more than the limits, however far the parser gets and whatever encoding it takes; what is
// well-formed and within the limits is let through; and what is made ready for a parser is the same document.
#include <expat.h>
#include <libxml/parser.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "util/xml_bounds.h"

namespace {

constexpr vlm::XmlLimits kSmall{1000, 4, 16, 48, 3};

// What a parser saw, in the limits' own terms.
struct Seen {
    std::vector<size_t> open;  // for each open element, the namespaces that it declares
    size_t inScope = 0;
    size_t depth = 0;
    size_t nodes = 0;
    size_t tag = 0;
    size_t declarations = 0;
    bool documentType = false;
    std::string events;

    void Start(size_t attributes, size_t declared) {
        nodes += 1 + attributes;
        open.push_back(declared);
        inScope += declared;
        depth = std::max(depth, open.size());
        declarations = std::max(declarations, inScope);
    }
    void End() {
        inScope -= open.back();
        open.pop_back();
    }
    bool IsWithin(const vlm::XmlLimits& limits) const {
        return depth <= limits.depth && nodes <= limits.nodes && tag <= limits.tag &&
               declarations <= limits.declarations;
    }
};

struct ExpatRun {
    XML_Parser parser;
    Seen seen;

    void Note(const char* what, std::string_view text) {
        // Text may come in any number of pieces.
        if (*what != 't' || last != 't') seen.events += what;
        last = *what;
        seen.events += text;
    }
    void NoteTag() { seen.tag = std::max(seen.tag, static_cast<size_t>(XML_GetCurrentByteCount(parser))); }
    char last = 0;
};

ExpatRun& Of(void* data) {
    return *static_cast<ExpatRun*>(data);
}

void OnStart(void* data, const char* name, const char** pairs) {
    ExpatRun& run = Of(data);
    run.Note("<", name);
    run.NoteTag();
    size_t attributes = 0;
    size_t declared = 0;
    for (; pairs[2 * attributes] != nullptr; ++attributes) {
        const std::string_view key = pairs[2 * attributes];
        declared += key == "xmlns" || key.starts_with("xmlns:");
        run.Note("@", key);
        run.Note("=", pairs[2 * attributes + 1]);
    }
    run.seen.Start(attributes, declared);
}

void OnEnd(void* data, const char* name) {
    Of(data).Note("/", name);
    Of(data).NoteTag();
    Of(data).seen.End();
}

// True when `text` is well-formed.
bool ReadWithExpat(std::string_view text, Seen* seen) {
    ExpatRun run{XML_ParserCreate(nullptr), {}};
    XML_SetUserData(run.parser, &run);
    XML_SetElementHandler(run.parser, OnStart, OnEnd);
    XML_SetCharacterDataHandler(run.parser, [](void* data, const char* piece, int length) {
        Of(data).Note("t", {piece, static_cast<size_t>(length)});
    });
    XML_SetCommentHandler(run.parser, [](void* data, const char* comment) {
        Of(data).Note("!", comment);
        ++Of(data).seen.nodes;
    });
    XML_SetProcessingInstructionHandler(run.parser, [](void* data, const char* target, const char* rest) {
        Of(data).Note("?", target);
        Of(data).Note(" ", rest);
        ++Of(data).seen.nodes;
    });
    // A section counts when it ends: one without an end is no piece of markup.
    XML_SetEndCdataSectionHandler(run.parser, [](void* data) { ++Of(data).seen.nodes; });
    XML_SetXmlDeclHandler(run.parser,
                          [](void* data, const char*, const char*, int) { ++Of(data).seen.nodes; });
    XML_SetStartDoctypeDeclHandler(run.parser, [](void* data, const char*, const char*, const char*, int) {
        Of(data).seen.documentType = true;
    });
    const bool good = XML_Parse(run.parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(run.parser);
    *seen = run.seen;
    return good;
}

// A second one, which knows many more encodings. It reports a tag before it looks at its end, and goes on
// with the text behind an error, so a tag counts when something other than an error follows it.
struct LibxmlRun {
    Seen seen;
    bool hasTag = false;
    size_t attributes = 0;
    size_t declared = 0;

    void Settle() {
        if (hasTag) seen.Start(attributes, declared);
        hasTag = false;
    }
    static Seen& Settled(void* data) {
        static_cast<LibxmlRun*>(data)->Settle();
        return static_cast<LibxmlRun*>(data)->seen;
    }
};

void ReadWithLibxml(std::string_view text, Seen* seen) {
    xmlSAXHandler handler{};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = [](void* data, const xmlChar*, const xmlChar*, const xmlChar*, int namespaces,
                                const xmlChar**, int attributes, int, const xmlChar**) {
        LibxmlRun& run = *static_cast<LibxmlRun*>(data);
        run.Settle();
        run.hasTag = true;
        run.attributes = static_cast<size_t>(namespaces + attributes);
        run.declared = static_cast<size_t>(namespaces);
    };
    handler.endElementNs = [](void* data, const xmlChar*, const xmlChar*, const xmlChar*) {
        LibxmlRun::Settled(data).End();
    };
    handler.comment = [](void* data, const xmlChar*) { ++LibxmlRun::Settled(data).nodes; };
    handler.cdataBlock =
        handler.characters = [](void* data, const xmlChar*, int) { LibxmlRun::Settled(data); };
    handler.processingInstruction = [](void* data, const xmlChar*, const xmlChar*) {
        ++LibxmlRun::Settled(data).nodes;
    };
    handler.internalSubset = [](void* data, const xmlChar*, const xmlChar*, const xmlChar*) {
        LibxmlRun::Settled(data).documentType = true;
    };
    handler.serror = [](void* data, auto* error) {
        if (error->level == XML_ERR_FATAL) static_cast<LibxmlRun*>(data)->hasTag = false;
    };
    LibxmlRun run;
    xmlSAXUserParseMemory(&handler, &run, text.data(), static_cast<int>(text.size()));
    *seen = run.seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string ready;
    const vlm::XmlRefusal refusal = vlm::CheckXmlBounds(text, kSmall, &ready);
    FUZZ_CHECK(refusal == vlm::CheckXmlBounds(text, kSmall));
    Seen seen;
    const bool wellFormed = ReadWithExpat(text, &seen);
    // Where units are of two bytes, a tag's limit counts units.
    const bool wide = size >= 2 && (data[0] >= 0xFE || data[0] == 0 || data[1] == 0);
    if (wide) seen.tag = (seen.tag + 1) / 2;

    if (refusal != vlm::XmlRefusal::kNone) {
        if (!wellFormed || refusal == vlm::XmlRefusal::kEncoding) return 0;
        FUZZ_CHECK(seen.documentType || size > kSmall.bytes || !seen.IsWithin(kSmall));
        return 0;
    }
    FUZZ_CHECK(vlm::CheckXmlBounds(text, vlm::kPrinterAnswerLimits) == vlm::XmlRefusal::kNone);
    FUZZ_CHECK(!seen.documentType && seen.IsWithin(kSmall));
    for (const std::string_view form : {text, std::string_view(ready)}) {
        Seen other;
        ReadWithLibxml(form, &other);
        FUZZ_CHECK(!other.documentType && other.IsWithin(kSmall));
    }

    Seen again;
    FUZZ_CHECK(ReadWithExpat(ready, &again) == wellFormed);
    FUZZ_CHECK(again.events == seen.events);
    return 0;
}
