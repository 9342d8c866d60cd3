#include "tools/vlmctl/bidi/new_extension.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/exchange/element_document.h"
#include "util/namespaces.h"
#include "util/text.h"
#include "util/trace.h"
#include "util/xml_names.h"
#include "util/xml_text.h"

namespace vlm::ctl {

namespace {

// The most elements without a name that each get a level of their own; more become Lists.
constexpr size_t kMostNumbered = 8;
// The deepest level that is written; what is below it becomes Lists.
constexpr size_t kDeepest = 40;
constexpr size_t kLongestKey = 60;

// An element of the answer, or an attribute.
struct Node {
    std::wstring name;  // as a filter writes it; of an attribute the step that leads to it
    std::wstring text;  // of all below, as the engine takes it
    bool ownText = false;
    std::vector<Node> attributes;
    std::vector<Node> children;

    bool IsPlain() const { return attributes.empty() && children.empty(); }
};
using Nodes = std::vector<const Node*>;

std::wstring LocalOf(std::wstring_view name) {
    return std::wstring(name.substr(name.find(L':') + 1));
}

// The prefixes of the file: the print service's is "pri", others keep theirs.
class Prefixes {
 public:
    Prefixes() { uris_.emplace(L"pri", std::wstring(ns::kWsdPrint)); }

    // The name for an XPath expression.
    std::wstring Name(IXMLDOMNode* node) {
        const std::wstring written = NameOf(node);
        const std::wstring local = LocalOf(written);
        _bstr_t text;
        node->get_namespaceURI(text.GetAddress());
        const std::wstring uri = text.length() != 0 ? std::wstring(text, text.length()) : std::wstring();
        if (uri.empty()) return local;
        for (const auto& [prefix, known] : uris_) {
            if (known == uri) return prefix + L':' + local;
        }
        std::wstring prefix = written.substr(0, written.size() - local.size());
        if (!prefix.empty()) prefix.pop_back();
        const std::wstring base = IsNcName(prefix) && prefix != L"bidi" ? prefix : L"ns";
        prefix = base;
        for (int i = 2; uris_.contains(prefix); ++i)
            prefix = base + std::to_wstring(i);
        uris_.emplace(prefix, uri);
        return prefix + L':' + local;
    }

    const std::map<std::wstring, std::wstring>& Uris() const { return uris_; }

 private:
    std::map<std::wstring, std::wstring> uris_;
};

// Recursion is as deep as the answer, whose depth is bounded.
Node Read(IXMLDOMNode* element, Prefixes& prefixes) {
    Node node;
    node.name = prefixes.Name(element);
    node.text = TextOf(element);
    for (const ComPtr<IXMLDOMNode>& attribute : NodesAt(element, L"@*")) {
        const std::wstring written = NameOf(attribute.Get());
        if (written == L"xmlns" || written.starts_with(L"xmlns:")) continue;
        // Not every XPath evaluator knows the prefix xml without a declaration.
        const std::wstring step = written.starts_with(L"xml:")
                                      ? L"@*[local-name()='" + LocalOf(written) + L"']"
                                      : L"@" + prefixes.Name(attribute.Get());
        node.attributes.push_back({step, TextOf(attribute.Get()), false, {}, {}});
    }
    for (const ComPtr<IXMLDOMNode>& child : NodesAt(element, L"node()")) {
        if (TypeOf(child.Get()) == NODE_ELEMENT) {
            node.children.push_back(Read(child.Get(), prefixes));
        } else {
            node.ownText |= !TextOf(child.Get()).empty();
        }
    }
    return node;
}

// Whether the text, converted to a number and back, is the same.
template <typename Number>
bool ReadsBack(const std::string& text) {
    Number value = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    return problem == std::errc() && end == text.data() + text.size() && fmt::format("{}", value) == text;
}

const wchar_t* TypeFor(const std::vector<std::wstring>& texts) {
    const auto all = [&](auto fits) {
        return !texts.empty() &&
               std::ranges::all_of(texts, [&](const auto& text) { return fits(ToUtf8(text)); });
    };
    if (all([](const std::string& text) { return text == "true" || text == "false"; })) return L"BIDI_BOOL";
    if (all(ReadsBack<std::int32_t>)) return L"BIDI_INT";
    if (all(ReadsBack<float>)) return L"BIDI_FLOAT";
    return L"BIDI_STRING";
}

// For attribute values between quotation marks; apostrophes stay readable.
std::wstring Quotable(const std::wstring& text) {
    std::wstring escaped;
    AppendEscaped(&escaped, text, L"&<>\"\t\n\r");
    return escaped;
}

// Whether the text can stand in a path and in a filter.
bool IsKey(const std::wstring& text) {
    return !text.empty() && text.size() <= kLongestKey &&
           text.find_first_of(L".:\\'\"$") == std::wstring::npos && Printable(text) == text &&
           TrimXmlSpace(text) == text;
}

// What a level or a leaf of the file is made of.
struct Where {
    std::wstring query;
    std::wstring path;  // of a filter
    // The filter may find several nodes for one leaf, so that only a List shows them all.
    bool many = false;
};

// The names already used on one level of the file.
struct Names {
    std::set<std::wstring> levels;
    std::set<std::wstring> leaves;
};

std::wstring Unique(std::set<std::wstring>& names, std::wstring_view element) {
    std::wstring base = LocalOf(element);
    std::replace(base.begin(), base.end(), L'.', L'_');
    std::wstring name = base;
    for (int i = 2; !names.insert(name).second; ++i)
        name = base + std::to_wstring(i);
    return name;
}

// Elements of the same name, by parent.
struct Group {
    std::wstring name;
    std::vector<Nodes> byParent;

    Nodes All() const {
        Nodes all;
        for (const Nodes& nodes : byParent)
            all.insert(all.end(), nodes.begin(), nodes.end());
        return all;
    }
    size_t Most() const {
        size_t most = 0;
        for (const Nodes& nodes : byParent)
            most = std::max(most, nodes.size());
        return most;
    }
};

// `members`: the children or the attributes.
std::vector<Group> Grouped(const Nodes& parents, std::vector<Node> Node::*members) {
    std::vector<Group> groups;
    std::map<std::wstring, size_t> byName;
    for (size_t i = 0; i < parents.size(); ++i) {
        for (const Node& child : parents[i]->*members) {
            const auto [known, added] = byName.emplace(child.name, groups.size());
            if (added) groups.push_back({child.name, std::vector<Nodes>(parents.size())});
            groups[known->second].byParent[i].push_back(&child);
        }
    }
    return groups;
}

std::vector<std::wstring> TextsOf(const Nodes& nodes) {
    std::vector<std::wstring> texts;
    for (const Node* node : nodes)
        texts.push_back(node->text);
    return texts;
}

// The text at a step to an attribute, or to the only child of that name if it is a plain one; else empty.
std::wstring TextAtStep(const Node& node, const std::wstring& step) {
    const Node* found = nullptr;
    for (const std::vector<Node>* members : {&node.attributes, &node.children}) {
        for (const Node& member : *members) {
            if (member.name != step) continue;
            if (found != nullptr || !member.IsPlain()) return {};
            found = &member;
        }
    }
    return found != nullptr ? found->text : L"";
}

// The step whose text tells the elements of each parent apart, if there is one.
std::optional<std::wstring> KeyOf(const Group& group) {
    std::vector<std::wstring> steps;
    const Node& sample = *group.All().front();
    for (const Node& attribute : sample.attributes)
        steps.push_back(attribute.name);
    // Other children describe an element; they do not identify it.
    for (const Node& child : sample.children) {
        const std::wstring local = LocalOf(child.name);
        if (local == L"Name" || local == L"Id" || local == L"Color") steps.push_back(child.name);
    }
    const auto rank = [](const std::wstring& step) {
        const std::wstring local = LocalOf(step.starts_with(L'@') ? step.substr(1) : step);
        return local == L"Name" ? 0 : local == L"Id" ? 1 : step.starts_with(L'@') ? 2 : 3;
    };
    std::ranges::stable_sort(steps,
                             [&](const auto& left, const auto& right) { return rank(left) < rank(right); });
    for (const std::wstring& step : steps) {
        const bool tells = std::ranges::all_of(group.byParent, [&](const Nodes& nodes) {
            std::set<std::wstring> keys;
            return std::ranges::all_of(nodes, [&](const Node* node) {
                const std::wstring key = TextAtStep(*node, step);
                return IsKey(key) && keys.insert(key).second;
            });
        });
        if (tells) return step;
    }
    return std::nullopt;
}

class Writer {
 public:
    Writer(const Prefixes& prefixes, const std::string& source) {
        extension_.xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
        Comment(0, L"A first extension file: a leaf for every text of what the printer answered (" +
                       FromUtf8(source) + L").");
        Comment(0, L"Take out what nobody asks for, and give the rest the names that your application uses.");
        Line(0, std::wstring(L"<bidi:Definition xmlns:bidi=\"") + ns::kBidi + L"\">");
        std::wstring declarations;
        for (const auto& [prefix, uri] : prefixes.Uris())
            declarations += (declarations.empty() ? L"" : L"\n         ") +
                            (L" xmlns:" + prefix + L"=\"" + Quotable(uri) + L"\"");
        Line(1, L"<Schema" + declarations + L">");
        Line(2, L"<Property name=\"Printer\">");
    }

    // An element that is queried by its own name.
    void Add(const Node& element, const std::wstring& path) {
        const Where where{element.name, path};
        const std::string query = ToUtf8(element.name);
        std::vector<std::string>& elements = extension_.elements;
        if (std::find(elements.begin(), elements.end(), query) == elements.end()) elements.push_back(query);
        WriteGroup({element.name, {{&element}}}, where, 3, top_, false);
    }

    NewExtension Take() {
        Line(2, L"</Property>");
        Line(1, L"</Schema>");
        Line(0, L"</bidi:Definition>");
        return std::move(extension_);
    }

 private:
    void Line(size_t level, const std::wstring& text) {
        extension_.xml += std::string(2 * level, ' ') + ToUtf8(text) + '\n';
    }

    void Comment(size_t level, const std::wstring& text) {
        std::wstring inside = Printable(text, 400);
        for (size_t i = inside.find(L"--"); i != std::wstring::npos; i = inside.find(L"--", i))
            inside.insert(i + 1, L" ");
        Line(level, L"<!-- " + inside + L" -->");
    }

    void WriteLeaf(size_t level, const wchar_t* element, const std::wstring& name, const wchar_t* type,
                   const Where& where) {
        ++extension_.leaves;
        Line(level, std::wstring(L"<") + element + L" name=\"" + Quotable(name) +
                        (type != nullptr ? std::wstring(L"\" type=\"") + type : L"") + L"\" query=\"" +
                        Quotable(where.query) + L"\"");
        Line(level + 3, L"filter=\"" + Quotable(where.path) + L"\"/>");
    }

    void WriteTexts(size_t level, const std::wstring& name, const std::vector<std::wstring>& texts,
                    const Where& where) {
        if (where.many) {
            WriteLeaf(level, L"List", name, nullptr, where);
        } else {
            WriteLeaf(level, L"Value", name, TypeFor(texts), where);
        }
    }

    // The path of `group` is that of `where`.
    void WriteGroup(const Group& group, const Where& where, size_t level, Names& names, bool alone) {
        const Nodes all = group.All();
        const bool repeated = group.Most() > 1;
        if (std::ranges::all_of(all, [](const Node* node) { return node->IsPlain(); })) {
            return WritePlain(group, {where.query, where.path, where.many || repeated}, level, names);
        }
        if (level > kDeepest) return WriteAllBelow(group, where, level, names);
        if (!repeated || where.many) return WriteLevel(group.name, all, where, level, names);
        if (const std::optional<std::wstring> key = KeyOf(group))
            return WriteParameter(group, *key, where, level, names, alone);
        if (group.Most() <= kMostNumbered) return WriteNumbered(group, where, level, names);
        Comment(level,
                L"Nothing tells these " + std::to_wstring(all.size()) + L" apart: each leaf lists them.");
        WriteLevel(group.name, all, {where.query, where.path, true}, level, names);
    }

    void WritePlain(const Group& group, const Where& where, size_t level, Names& names) {
        const std::vector<std::wstring> texts = TextsOf(group.All());
        const bool empty = std::ranges::all_of(texts, [](const auto& text) { return text.empty(); });
        const std::wstring name = Unique(names.leaves, group.name);
        if (empty) {
            WriteLeaf(level, L"Installed", name, nullptr, where);
        } else {
            WriteTexts(level, name, texts, where);
        }
    }

    void WriteAllBelow(const Group& group, const Where& where, size_t level, Names& names) {
        const std::wstring below = where.path + L"/descendant-or-self::*/";
        WriteLeaf(level, L"List", Unique(names.leaves, group.name + L"Texts"), nullptr,
                  {where.query, below + L"text()[normalize-space()]"});
        WriteLeaf(level, L"List", Unique(names.leaves, group.name + L"Attributes"), nullptr,
                  {where.query, below + L"@*"});
    }

    void WriteLevel(const std::wstring& element, const Nodes& nodes, const Where& where, size_t level,
                    Names& names) {
        Line(level, L"<Property name=\"" + Quotable(Unique(names.levels, element)) + L"\">");
        WriteContent(nodes, where, level + 1);
        Line(level, L"</Property>");
    }

    void WriteParameter(const Group& group, const std::wstring& key, const Where& where, size_t level,
                        Names& names, bool alone) {
        const std::wstring parameter = Unique(parameters_, group.name);
        std::wstring values;
        for (const Node* node : group.All())
            values += (values.empty() ? L"" : L", ") + TextAtStep(*node, key);
        if (!alone) Line(level, L"<Property name=\"" + Quotable(Unique(names.levels, group.name)) + L"\">");
        const size_t inside = level + (alone ? 0 : 1);
        ++extension_.parameters;
        Comment(inside, L"One level for each: " + values);
        Line(inside, L"<Parameter name=\"$" + Quotable(parameter) + L"$\" parameter=\"" +
                         Quotable(parameter) + L"\" query=\"" + Quotable(where.query) + L"\"");
        Line(inside + 5, L"filter=\"" + Quotable(where.path + L"/" + key) + L"\">");
        WriteContent(group.All(), {where.query, where.path + L"[" + key + L"='$" + parameter + L"$']"},
                     inside + 1);
        Line(inside, L"</Parameter>");
        if (!alone) Line(level, L"</Property>");
    }

    void WriteNumbered(const Group& group, const Where& where, size_t level, Names& names) {
        Comment(level, L"Nothing names these; they are told apart by their order.");
        for (size_t i = 0; i < group.Most(); ++i) {
            Nodes nodes;
            for (const Nodes& siblings : group.byParent) {
                if (i < siblings.size()) nodes.push_back(siblings[i]);
            }
            const std::wstring number = std::to_wstring(i + 1);
            WriteLevel(group.name + number, nodes, {where.query, where.path + L"[" + number + L"]"}, level,
                       names);
        }
    }

    // Writes the attributes, text and children of the elements that one filter finds.
    void WriteContent(const Nodes& nodes, const Where& where, size_t level) {
        Names names;
        const auto below = [&](const std::wstring& step) {
            return Where{where.query, where.path + L"/" + step, where.many};
        };
        for (const Group& group : Grouped(nodes, &Node::attributes))
            WriteTexts(level, Unique(names.leaves, NameOfStep(group.name)), TextsOf(group.All()),
                       below(group.name));
        WriteOwnText(nodes, where, level, names);
        const std::vector<Group> groups = Grouped(nodes, &Node::children);
        for (const Group& group : groups)
            WriteGroup(group, below(group.name), level, names, groups.size() == 1);
    }

    static std::wstring NameOfStep(const std::wstring& step) {
        const size_t quote = step.find(L'\'');
        if (quote == std::wstring::npos) return step.substr(1);
        return step.substr(quote + 1, step.rfind(L'\'') - quote - 1);
    }

    void WriteOwnText(const Nodes& nodes, const Where& where, size_t level, Names& names) {
        const bool mixed =
            std::ranges::any_of(nodes, [](const Node* node) { return !node->children.empty(); });
        Nodes withText;
        std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(withText),
                     [](const Node* node) { return node->ownText; });
        if (withText.empty()) return;
        const std::wstring name = Unique(names.leaves, L"Text");
        if (mixed) {
            WriteLeaf(level, L"List", name, nullptr,
                      {where.query, where.path + L"/text()[normalize-space()]"});
        } else {
            WriteTexts(level, name, TextsOf(withText), where);
        }
    }

    NewExtension extension_;
    Names top_;
    std::set<std::wstring> parameters_;
};

}  // namespace

NewExtension MakeExtension(const std::string& cleaned, const std::string& source) {
    const ElementDocument document(source, cleaned);
    Prefixes prefixes;
    // How often each name occurs in the document, because "//" finds an element anywhere in it.
    std::map<std::wstring, size_t> count;
    for (const ComPtr<IXMLDOMNode>& element : NodesAt(document.Envelope().Get(), L"//*"))
        ++count[LocalOf(NameOf(element.Get()))];
    std::vector<Node> elements;
    for (const ComPtr<IXMLDOMNode>& part : document.Parts()) {
        for (const ComPtr<IXMLDOMNode>& element : NodesAt(part.Get(), L"*"))
            elements.push_back(Read(element.Get(), prefixes));
    }
    if (elements.empty()) throw CommandError(source + " holds no elements", kNothingFound);

    Writer writer(prefixes, source);
    std::vector<std::string> leftOut;
    std::map<std::wstring, size_t> before;
    std::map<std::wstring, size_t> tops;
    for (const Node& element : elements)
        ++tops[element.name];
    for (const Node& element : elements) {
        if (element.name.find(L':') == std::wstring::npos) {
            leftOut.push_back(ToUtf8(element.name));
            continue;
        }
        std::wstring path = element.name;
        if (count[LocalOf(element.name)] > 1) path += L"[local-name(..)='ElementData']";
        if (tops[element.name] > 1)
            path += L"[count(../preceding-sibling::*/" + element.name + L")=" +
                    std::to_wstring(before[element.name]++) + L"]";
        writer.Add(element, path);
    }
    NewExtension extension = writer.Take();
    extension.leftOut = std::move(leftOut);
    return extension;
}

}  // namespace vlm::ctl
