#include "bidi/filter_cost.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>

namespace vlm {

namespace {

using std::wstring_view;

constexpr int kDeepestExpression = 100;

// Units of work, measured: see the header.
constexpr double kVisit = 0.5;  // a node that an axis passes
constexpr double kStep = 1;     // one evaluation of a step, an operator or a function
constexpr double kString = 1;   // a node's text fetched and compared, and for each of its characters:
constexpr double kCharacter = 0.05;
constexpr double kJoined = 1;       // a character that concat() keeps in memory
constexpr double kCompared = 0.01;  // a pair of nodes, or of characters, that are compared

// The nodes of a set, or of the sets that all evaluations of an expression give.
struct Nodes {
    double total = 0;
    double repeats = 0;  // in how many evaluations one node can be
    double text = 0;     // characters of all their string values
    double below = 0;    // nodes below them
};

// What an expression gives: nodes, or else strings, of which `nodes` has the text.
struct Value {
    bool isNodes = false;
    Nodes nodes;
    double most = 0;  // nodes of one evaluation
};

// The evaluations of an expression, one for each context node.
using Contexts = Nodes;

enum class Axis { kChild, kAttribute, kSelf, kParent, kDescendant, kAncestor, kSibling, kBeyond, kNamespace };

struct NamedAxis {
    wstring_view name;
    Axis axis;
};
constexpr std::array<NamedAxis, 13> kAxes{{{L"child", Axis::kChild},
                                           {L"attribute", Axis::kAttribute},
                                           {L"self", Axis::kSelf},
                                           {L"parent", Axis::kParent},
                                           {L"descendant", Axis::kDescendant},
                                           {L"descendant-or-self", Axis::kDescendant},
                                           {L"ancestor", Axis::kAncestor},
                                           {L"ancestor-or-self", Axis::kAncestor},
                                           {L"following-sibling", Axis::kSibling},
                                           {L"preceding-sibling", Axis::kSibling},
                                           {L"following", Axis::kBeyond},
                                           {L"preceding", Axis::kBeyond},
                                           {L"namespace", Axis::kNamespace}}};

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}
bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}
// Roughly: what is no name is found out by the parser behind this one.
bool StartsName(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_' || c >= 0x80;
}
bool ContinuesName(wchar_t c) {
    return StartsName(c) || IsDigit(c) || c == L'-' || c == L'.';
}

// The name as an answer's shape has it. A name is compared by its UTF-8; one that is not ASCII is taken for
// the most frequent.
std::optional<std::string> Ascii(wstring_view name) {
    std::string ascii;
    for (const wchar_t c : name) {
        if (c >= 0x80) return std::nullopt;
        ascii.push_back(static_cast<char>(c));
    }
    return ascii;
}

// A recursive-descent parser of XPath 1.0 that adds up what each piece costs while it reads it. Each function
// reads one production for the given evaluations; false once the text is no XPath.
class Estimator {
 public:
    Estimator(wstring_view text, const AnswerShape& answer) : rest_(text), answer_(answer) {}

    std::optional<double> Estimate() {
        Value value;
        if (!ReadExpression(Root(1), &value)) return std::nullopt;
        SkipBlanks();
        if (!rest_.empty()) return std::nullopt;
        // Nested searches multiply beyond any number.
        return std::isfinite(work_) ? work_ : std::numeric_limits<double>::max();
    }

    // What was not read yet when the text ceased to be XPath.
    wstring_view Unread() const { return rest_; }

 private:
    // Operators of all ranks in one row: their order does not matter here, but what stands beside a
    // comparison.
    bool ReadExpression(const Contexts& contexts, Value* value) {
        if (++depth_ > kDeepestExpression) return false;
        if (!ReadOperand(contexts, value)) return false;
        bool comparesNext = false;
        while (TakeOperator(&comparesNext)) {
            Value right;
            if (!ReadOperand(contexts, &right)) return false;
            work_ += contexts.total * kStep;
            ChargeText(*value);
            ChargeText(right);
            if (comparesNext && value->isNodes && right.isNodes) {
                work_ += value->nodes.total * right.most * kCompared;
            }
            *value = right;
            value->isNodes = value->isNodes && !comparesNext;
        }
        --depth_;
        return true;
    }

    bool ReadOperand(const Contexts& contexts, Value* value) {
        while (Take(L'-')) {
        }
        if (!ReadPath(contexts, value)) return false;
        while (Take(L'|')) {
            Value other;
            if (!ReadPath(contexts, &other)) return false;
            work_ += value->nodes.total * other.most * kCompared;
            value->most += other.most;
            value->nodes.total += other.nodes.total;
            value->nodes.repeats = std::min(contexts.total, value->nodes.repeats + other.nodes.repeats);
            value->nodes.text += other.nodes.text;
            value->nodes.below += other.nodes.below;
        }
        return true;
    }

    bool TakeOperator(bool* compares) {
        SkipBlanks();
        *compares = false;
        for (const wstring_view comparison : {L"!=", L"<=", L">=", L"=", L"<", L">"}) {
            if (!TakeText(comparison)) continue;
            return *compares = true;
        }
        if (Take(L'+') || Take(L'-') || Take(L'*')) return true;
        for (const wstring_view word : {L"and", L"or", L"div", L"mod"}) {
            // Behind an operand there is no name, and not every parser wants a blank behind the word.
            if (TakeText(word)) return true;
        }
        return false;
    }

    bool ReadPath(const Contexts& contexts, Value* value) {
        SkipBlanks();
        if (Take(L'/')) {
            *value = {true, Root(contexts.total), 1};
            if (Take(L'/')) return ReadSteps(contexts, value, true);
            SkipBlanks();
            return !StartsStep() || ReadSteps(contexts, value, false);
        }
        if (StartsPrimary()) {
            if (!ReadPrimary(contexts, value) || !ReadPredicates(value->nodes)) return false;
            if (!Take(L'/')) return true;
            return ReadSteps(contexts, value, Take(L'/'));
        }
        *value = {true, contexts, 1};
        return ReadSteps(contexts, value, false);
    }

    // Steps with "/" and "//" between them, of which the first may be deep itself.
    bool ReadSteps(const Contexts& contexts, Value* value, bool deep) {
        for (;;) {
            // Not every parser minds a third slash.
            while (Take(L'/'))
                deep = true;
            if (!ReadStep(contexts, value, deep)) return false;
            SkipBlanks();
            if (!Take(L'/')) return true;
            deep = Take(L'/');
        }
    }

    bool ReadStep(const Contexts& contexts, Value* value, bool deep) {
        SkipBlanks();
        Axis axis = Axis::kChild;
        wstring_view test;
        if (TakeText(L"..")) {
            axis = Axis::kParent;
            test = L"node()";
        } else if (Take(L'.')) {
            axis = Axis::kSelf;
            test = L"node()";
        } else {
            if (Take(L'@')) axis = Axis::kAttribute;
            if (!ReadTest(&axis, &test)) return false;
        }
        // "//" stands for a step of its own, which has no predicates.
        if (deep) Walk(contexts, value, Axis::kDescendant, L"node()", [](const Nodes&) { return true; });
        return Walk(contexts, value, axis, test,
                    [this](const Nodes& candidates) { return ReadPredicates(candidates); });
    }

    // A node test, which an axis may precede.
    bool ReadTest(Axis* axis, wstring_view* test) {
        SkipBlanks();
        wstring_view name = TakeName();
        SkipBlanks();
        if (!name.empty() && TakeText(L"::")) {
            const auto* const found = std::find_if(kAxes.begin(), kAxes.end(),
                                                   [&](const NamedAxis& one) { return one.name == name; });
            if (found == kAxes.end()) return false;
            *axis = found->axis;
            SkipBlanks();
            name = TakeName();
        }
        if (name.empty()) {
            *test = L"*";
            return Take(L'*');
        }
        if (!rest_.starts_with(L"::") && TakeText(L":")) {
            *test = Take(L'*') ? wstring_view(L"*") : TakeName();
            return !test->empty();
        }
        *test = name;
        SkipBlanks();
        if (!Take(L'(')) return true;
        // node(), text() and the like; one of them may have a string.
        *test = L"node()";
        SkipBlanks();
        Value ignored;
        if (StartsLiteral() && !ReadLiteral(Root(1), &ignored)) return false;
        SkipBlanks();
        return Take(L')');
    }

    // From the nodes of `value` along the axis to those that pass the test and the predicates behind it,
    // which `readPredicates` reads for the candidates.
    template <typename ReadPredicates>
    bool Walk(const Contexts& contexts, Value* value, Axis axis, wstring_view test,
              ReadPredicates readPredicates) {
        const Nodes& from = value->nodes;
        const double nodes = All();
        const double wide = static_cast<double>(answer_.widest);
        const double deep = static_cast<double>(answer_.depth) + 1;
        double reach = 1;               // nodes from one
        double all = from.total;        // nodes from all of them
        double repeats = from.repeats;  // how often one node is reached
        switch (axis) {
            case Axis::kChild:
                reach = wide;
                all = from.repeats * nodes;
                break;
            case Axis::kAttribute:
                reach = static_cast<double>(answer_.attributes);
                all = from.repeats * reach;
                break;
            case Axis::kNamespace:
                reach = static_cast<double>(answer_.attributes) + 1;
                all *= reach;
                break;
            case Axis::kSelf:
                break;
            case Axis::kParent:
                repeats *= wide;
                break;
            case Axis::kDescendant:
                reach = nodes;
                all += from.below;
                repeats *= deep;
                break;
            case Axis::kAncestor:
                reach = deep;
                all *= reach;
                repeats *= nodes;
                break;
            case Axis::kSibling:
                reach = wide;
                all = from.repeats * nodes * wide / 2;
                repeats *= wide;
                break;
            case Axis::kBeyond:
                reach = nodes;
                all *= reach;
                repeats *= nodes;
                break;
        }
        const double visits = std::min(from.total * reach, all);
        work_ += from.total * kStep + visits * kVisit;

        const Nodes passing = Passing(axis, test);
        const Nodes found = Some(passing, std::min(visits, repeats * passing.total), repeats);
        if (!readPredicates(found)) return false;

        const bool distinct = axis == Axis::kChild || axis == Axis::kAttribute || axis == Axis::kSelf;
        const double most = std::min({passing.total, value->most * reach, visits});
        if (!distinct && value->most > 1) work_ += found.total * most * kCompared;
        // The same node in one evaluation counts once.
        const double total = std::min(found.total, contexts.total * most);
        *value = {true, Some(passing, total, std::min(repeats, contexts.total)), most};
        return true;
    }

    bool ReadPredicates(const Nodes& candidates) {
        for (;;) {
            SkipBlanks();
            if (!Take(L'[')) return true;
            Value value;
            work_ += candidates.total * kStep;
            if (!ReadExpression(candidates, &value)) return false;
            SkipBlanks();
            if (!Take(L']')) return false;
        }
    }

    bool ReadPrimary(const Contexts& contexts, Value* value) {
        if (Take(L'(')) {
            if (!ReadExpression(contexts, value)) return false;
            SkipBlanks();
            return Take(L')');
        }
        if (StartsLiteral()) return ReadLiteral(contexts, value);
        if (IsDigit(rest_.front()) || rest_.front() == L'.') {
            SkipNumber();
            *value = {};
            return true;
        }
        return ReadCall(contexts, value);
    }

    void SkipNumber() {
        const auto skip = [this](auto isPart) {
            const auto* const end = std::find_if_not(rest_.begin(), rest_.end(), isPart);
            rest_.remove_prefix(static_cast<size_t>(end - rest_.begin()));
        };
        skip([](wchar_t c) { return IsDigit(c) || c == L'.'; });
        // Not XPath's own, but some evaluators know exponents.
        if (!TakeText(L"e") && !TakeText(L"E")) return;
        if (!TakeText(L"-")) TakeText(L"+");
        skip(IsDigit);
    }

    bool ReadLiteral(const Contexts& contexts, Value* value) {
        const size_t end = rest_.find(rest_.front(), 1);
        if (end == wstring_view::npos) return false;
        *value = {};
        value->nodes.text = contexts.total * static_cast<double>(end - 1);
        rest_.remove_prefix(end + 1);
        return true;
    }

    bool ReadCall(const Contexts& contexts, Value* value) {
        wstring_view name = TakeName();
        if (TakeText(L":")) name = TakeName();
        SkipBlanks();
        if (!Take(L'(')) return false;
        work_ += contexts.total * kStep;
        double text = 0;
        double first = contexts.text;  // without arguments, that of the context node
        size_t count = 0;
        SkipBlanks();
        while (!Take(L')')) {
            if (count++ > 0 && !Take(L',')) return false;
            Value argument;
            if (!ReadExpression(contexts, &argument)) return false;
            ChargeText(argument);
            // Searched for in the first, or each of its characters is.
            if (count == 1) first = argument.nodes.text;
            if (count > 1 && name != L"concat")
                work_ += first * std::min(argument.nodes.text, Text()) * kCompared;
            text += argument.nodes.text;
            SkipBlanks();
        }
        if (name == L"concat") work_ += text * kJoined;
        *value = {};
        if (name == L"id")
            *value = {true, Some(Passing(Axis::kChild, L"*"), contexts.total * All(), contexts.total), All()};
        value->nodes.text = count == 0 ? first : text;
        return true;
    }

    void ChargeText(const Value& value) {
        work_ += (value.isNodes ? value.nodes.total * kString : 0) + value.nodes.text * kCharacter;
    }

    // The document's node, for so many evaluations.
    Nodes Root(double times) const { return {times, times, times * Text(), times * All()}; }

    // `total` of these nodes of the document, none more than `repeats` times.
    Nodes Some(const Nodes& nodes, double total, double repeats) const {
        const double times = std::min(repeats, total);
        return {total, times, std::min(nodes.text * times, total * Text()),
                std::min(nodes.below * times, total * All())};
    }

    // The nodes of the document that pass the test.
    Nodes Passing(Axis axis, wstring_view test) const {
        const double nodes = All();
        if (axis == Axis::kAttribute || axis == Axis::kNamespace) {
            const double attributes = static_cast<double>(answer_.attributes) + 1;
            return {axis == Axis::kAttribute ? attributes : attributes * nodes, 1,
                    static_cast<double>(answer_.attributeText), 0};
        }
        const std::optional<std::string> name = Ascii(test);
        if (test == L"*" || test == L"node()" || !name)
            return {nodes, 1, static_cast<double>(answer_.all.text) + 2 * Text(),
                    static_cast<double>(answer_.all.nodes) + nodes};
        const auto found = answer_.byName.find(*name);
        if (found == answer_.byName.end()) return {0, 1, 0, 0};
        const AnswerShape::Elements& named = found->second;
        return {static_cast<double>(named.count), 1, static_cast<double>(named.text),
                static_cast<double>(named.nodes)};
    }

    // Nodes of the document, its own among them; characters.
    double All() const { return static_cast<double>(answer_.nodes) + 1; }
    double Text() const { return static_cast<double>(answer_.text + answer_.attributeText); }

    bool StartsLiteral() const { return !rest_.empty() && (rest_.front() == L'"' || rest_.front() == L'\''); }
    bool StartsStep() const {
        return !rest_.empty() && (StartsName(rest_.front()) || rest_.front() == L'*' ||
                                  rest_.front() == L'@' || rest_.front() == L'.');
    }
    bool StartsPrimary() const {
        if (rest_.empty()) return false;
        const wchar_t first = rest_.front();
        if (first == L'(' || StartsLiteral() || IsDigit(first)) return true;
        if (first == L'.') return rest_.size() > 1 && IsDigit(rest_[1]);
        // A function's name, as opposed to a node test's.
        size_t end = NameLength(rest_);
        if (end == 0) return false;
        const wstring_view name = rest_.substr(0, end);
        if (end + 1 < rest_.size() && rest_[end] == L':' && StartsName(rest_[end + 1]))
            end += 1 + NameLength(rest_.substr(end + 1));
        while (end < rest_.size() && IsBlank(rest_[end]))
            ++end;
        return end < rest_.size() && rest_[end] == L'(' && name != L"node" && name != L"text" &&
               name != L"comment" && name != L"processing-instruction";
    }

    static size_t NameLength(wstring_view text) {
        if (text.empty() || !StartsName(text.front())) return 0;
        return static_cast<size_t>(std::find_if_not(text.begin(), text.end(), ContinuesName) - text.begin());
    }
    wstring_view TakeName() {
        const wstring_view name = rest_.substr(0, NameLength(rest_));
        rest_.remove_prefix(name.size());
        return name;
    }
    bool Take(wchar_t c) {
        SkipBlanks();
        if (rest_.empty() || rest_.front() != c) return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool TakeText(wstring_view text) {
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    void SkipBlanks() {
        while (!rest_.empty() && IsBlank(rest_.front()))
            rest_.remove_prefix(1);
    }

    wstring_view rest_;
    const AnswerShape& answer_;
    double work_ = 0;
    int depth_ = 0;
};

}  // namespace

std::optional<double> EstimateWork(wstring_view xpath, const AnswerShape& answer, size_t* end) {
    Estimator estimator(xpath, answer);
    const std::optional<double> work = estimator.Estimate();
    if (end != nullptr) *end = xpath.size() - estimator.Unread().size();
    return work;
}

}  // namespace vlm
