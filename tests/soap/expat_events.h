// A namespace-aware parser that is not ours, for what feeds the normalizer and for what reads its output.
#pragma once

#include <expat.h>

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "soap/prefix_normalizer.h"
#include "utf8.h"
#include "util/namespaces.h"
#include "util/xml_names.h"

namespace vlm {

// Receives a document's events, names resolved.
class Events {
 public:
    virtual ~Events() = default;
    virtual void Declare(std::wstring_view prefix, std::wstring_view uri) = 0;
    virtual void EndDeclaration() = 0;
    virtual void Start(const XmlName& name, const XmlAttributes& attributes) = 0;
    virtual void End() = 0;
    virtual void Text(std::wstring_view text) = 0;
    // Before the start of an element: a name in it, or its own, is of `uri` by this prefix.
    virtual void Use(std::wstring_view /*uri*/, std::wstring_view /*prefix*/) {}
};

struct SplitName {
    std::wstring uri;
    std::wstring local;
    std::wstring prefix;
};

inline constexpr char kNameSeparator = '\n';

inline SplitName Split(const char* name) {
    const std::wstring whole = Wide(name);
    const size_t first = whole.find(kNameSeparator);
    if (first == std::wstring::npos) return {L"", whole, L""};
    const size_t second = whole.find(kNameSeparator, first + 1);
    if (second == std::wstring::npos) return {whole.substr(0, first), whole.substr(first + 1), L""};
    return {whole.substr(0, first), whole.substr(first + 1, second - first - 1), whole.substr(second + 1)};
}

// False when `document` is not well-formed.
inline bool ParseNamespaces(std::string_view document, Events* events) {
    const XML_Parser parser = XML_ParserCreateNS("UTF-8", kNameSeparator);
    XML_SetReturnNSTriplet(parser, 1);
    XML_SetUserData(parser, events);
    XML_SetNamespaceDeclHandler(
        parser,
        [](void* data, const char* prefix, const char* uri) {
            static_cast<Events*>(data)->Declare(Wide(prefix ? prefix : ""), Wide(uri ? uri : ""));
        },
        [](void* data, const char*) { static_cast<Events*>(data)->EndDeclaration(); });
    XML_SetElementHandler(
        parser,
        [](void* data, const char* name, const char** pairs) {
            std::vector<SplitName> names = {Split(name)};
            std::vector<std::wstring> values;
            for (; *pairs != nullptr; pairs += 2) {
                names.push_back(Split(pairs[0]));
                values.push_back(Wide(pairs[1]));
            }
            Events* const receiver = static_cast<Events*>(data);
            XmlAttributes attributes;
            for (const SplitName& one : names) {
                if (!one.uri.empty()) receiver->Use(one.uri, one.prefix);
                if (&one == &names.front()) continue;
                attributes.push_back({{one.uri, one.local}, values[attributes.size()]});
            }
            receiver->Start({names.front().uri, names.front().local}, attributes);
        },
        [](void* data, const char*) { static_cast<Events*>(data)->End(); });
    XML_SetCharacterDataHandler(parser, [](void* data, const char* text, int length) {
        static_cast<Events*>(data)->Text(Wide({text, static_cast<size_t>(length)}));
    });
    const bool good =
        XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return good;
}

class Feed : public Events {
 public:
    explicit Feed(const std::vector<NamespaceDeclaration>& wanted) : normalizer(wanted) {}
    void Declare(std::wstring_view prefix, std::wstring_view uri) override {
        refused = !normalizer.Declare(prefix, uri) || refused;
    }
    void EndDeclaration() override { normalizer.EndDeclaration(); }
    void Start(const XmlName& name, const XmlAttributes& attributes) override {
        refused = !normalizer.StartElement(name, attributes) || refused;
    }
    void End() override { normalizer.EndElement(); }
    void Text(std::wstring_view text) override { normalizer.Text(text); }

    PrefixNormalizer normalizer;
    bool refused = false;
};

// What a document says, whatever its prefixes and the white space at the ends of its values and texts.
class Meaning : public Events {
 public:
    // The value of an ElementData's Name attribute, which follows its prefix as a tag does.
    struct QualifiedValue {
        std::wstring raw;
        std::wstring expanded;  // empty when its prefix is not declared
    };

    void Declare(std::wstring_view prefix, std::wstring_view uri) override {
        scope_.push_back({std::wstring(prefix), std::wstring(uri)});
    }
    void EndDeclaration() override { scope_.pop_back(); }
    void Start(const XmlName& name, const XmlAttributes& attributes) override {
        std::map<std::wstring, std::wstring> sorted;
        for (const XmlAttribute& a : attributes) {
            const bool qualified =
                name.uri == ns::kWsdPrint && name.local == L"ElementData" && a.name.local == L"Name";
            const std::wstring_view value = TrimXmlSpace(a.value);
            if (qualified) values.push_back({std::wstring(value), Expand(value)});
            sorted[Expanded(a.name.uri, a.name.local)] = qualified ? L"" : value;
        }
        EndRun(false);
        afterStart_ = true;
        text += L"<" + Expanded(name.uri, name.local);
        for (const auto& [key, value] : sorted)
            text.append(L" ").append(key).append(L"=[").append(value).append(L"]");
        text += L">";
    }
    void End() override {
        EndRun(true);
        text += L"</>";
    }
    void Text(std::wstring_view piece) override { run_ += piece; }

    // Whether a document with the meaning `after` can stand for one with this.
    bool IsKeptBy(const Meaning& after) const {
        return text == after.text &&
               std::equal(values.begin(), values.end(), after.values.begin(), after.values.end(),
                          [](const QualifiedValue& was, const QualifiedValue& is) {
                              return was.expanded.empty() ? was.raw == is.raw : was.expanded == is.expanded;
                          });
    }

    std::wstring text;
    std::vector<QualifiedValue> values;

 private:
    // A run of text counts without the white space next to its element's tags; on the root it may stay.
    void EndRun(bool beforeEnd) {
        std::wstring_view run = run_;
        if (beforeEnd) run = run.substr(0, run.find_last_not_of(kXmlSpace) + 1);
        if (afterStart_) run.remove_prefix(std::min(run.find_first_not_of(kXmlSpace), run.size()));
        text += run;
        run_.clear();
        afterStart_ = false;
    }
    static std::wstring Expanded(std::wstring_view uri, std::wstring_view local) {
        return L"{" + std::wstring(uri) + L"}" + std::wstring(local);
    }
    std::wstring Expand(std::wstring_view value) const {
        const size_t colon = value.find(L':');
        const bool prefixed = colon != std::wstring_view::npos;
        const std::wstring_view prefix = prefixed ? value.substr(0, colon) : std::wstring_view();
        const std::wstring_view local = prefixed ? value.substr(colon + 1) : value;
        if (prefix == L"xml") return Expanded(ns::kXml, local);
        const auto found =
            std::find_if(scope_.rbegin(), scope_.rend(),
                         [&](const NamespaceDeclaration& entry) { return entry.prefix == prefix; });
        return found == scope_.rend() || found->uri.empty() ? L"" : Expanded(found->uri, local);
    }

    std::vector<NamespaceDeclaration> scope_;
    std::wstring run_;         // text since the last tag
    bool afterStart_ = false;  // which was a start tag
};

}  // namespace vlm
