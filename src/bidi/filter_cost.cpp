#include "bidi/filter_cost.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "bidi/xpath_names.h"

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

// What all evaluations of an expression give together, one evaluation for each context node. A number or a
// boolean is all zeros, and a string has nothing but its text.
struct Nodes {
    double total = 0;
    double repeats = 0;  // in how many evaluations one node can be
    double text = 0;     // characters of all their string values
    double below = 0;    // nodes below them
    double most = 0;     // nodes of one evaluation
};

// In the order of Estimator::Size.
enum class Extent { kOne, kSiblings, kLevels, kAttributes, kSubtree, kDocument };

// An axis leads from one node to at most `reach` others, and to one node from at most `origins` others.
struct Axis {
    wstring_view name;
    Extent reach;
    Extent origins;
};
constexpr Axis kAxes[] = {{L"child", Extent::kSiblings, Extent::kOne},
                          {L"attribute", Extent::kAttributes, Extent::kOne},
                          {L"self", Extent::kOne, Extent::kOne},
                          {L"parent", Extent::kOne, Extent::kSiblings},
                          {L"descendant", Extent::kSubtree, Extent::kLevels},
                          {L"descendant-or-self", Extent::kSubtree, Extent::kLevels},
                          {L"ancestor", Extent::kLevels, Extent::kDocument},
                          {L"ancestor-or-self", Extent::kLevels, Extent::kDocument},
                          {L"following-sibling", Extent::kSiblings, Extent::kSiblings},
                          {L"preceding-sibling", Extent::kSiblings, Extent::kSiblings},
                          {L"following", Extent::kDocument, Extent::kDocument},
                          {L"preceding", Extent::kDocument, Extent::kDocument},
                          {L"namespace", Extent::kAttributes, Extent::kDocument}};

struct NotXPath {};

void Require(bool holds) {
    if (!holds) throw NotXPath();
}

const Axis& AxisNamed(wstring_view name) {
    const auto* const found =
        std::find_if(std::begin(kAxes), std::end(kAxes), [&](const Axis& axis) { return axis.name == name; });
    Require(found != std::end(kAxes));
    return *found;
}

bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

// A recursive-descent parser of XPath 1.0 that adds up the work while it reads. Each function reads one
// production, evaluated once for each of the context nodes, and throws NotXPath where the text is not XPath.
class Estimator {
 public:
    Estimator(wstring_view text, const AnswerShape& answer) : rest_(text), answer_(answer) {}

    std::optional<double> Estimate() {
        try {
            ReadExpression(Root(1));
            SkipBlanks();
            Require(rest_.empty());
        } catch (const NotXPath&) {
            return std::nullopt;
        }
        // Nested searches multiply beyond any number.
        return std::isfinite(work_) ? work_ : std::numeric_limits<double>::max();
    }

    // What was not read yet when the text ceased to be XPath.
    wstring_view Unread() const { return rest_; }

 private:
    // Operators of all ranks in one row: their order matters only to what stands beside a comparison.
    Nodes ReadExpression(const Nodes& contexts) {
        Require(++depth_ <= kDeepestExpression);
        Nodes value = ReadUnion(contexts);
        for (;;) {
            const bool compares = TakeOneOf({L"!=", L"<=", L">=", L"=", L"<", L">"});
            // After an operand there is no name, and not every parser wants a blank after the word.
            if (!compares && !TakeOneOf({L"+", L"-", L"*", L"and", L"or", L"div", L"mod"})) break;
            const Nodes right = ReadUnion(contexts);
            work_ += contexts.total * kStep;
            ChargeText(value);
            ChargeText(right);
            if (compares) work_ += value.total * right.most * kCompared;
            value = compares ? Nodes() : right;
        }
        --depth_;
        return value;
    }

    Nodes ReadUnion(const Nodes& contexts) {
        SkipAll(L"- \t\r\n");
        Nodes all = ReadPath(contexts);
        while (Take(L"|")) {
            const Nodes other = ReadPath(contexts);
            work_ += all.total * other.most * kCompared;
            all = {all.total + other.total, std::min(contexts.total, all.repeats + other.repeats),
                   all.text + other.text, all.below + other.below, all.most + other.most};
        }
        return all;
    }

    Nodes ReadPath(const Nodes& contexts) {
        if (Take(L"/")) {
            const Nodes root = Root(contexts.total);
            return StartsStep() ? ReadSteps(contexts.total, root) : root;
        }
        if (const std::optional<Nodes> value = ReadPrimary(contexts)) {
            ReadPredicates(*value);
            return Take(L"/") ? ReadSteps(contexts.total, *value) : *value;
        }
        Nodes from = contexts;
        from.most = 1;
        return ReadSteps(contexts.total, from);
    }

    // What follows a slash, or stands at the beginning of a relative path.
    Nodes ReadSteps(double evaluations, Nodes from) {
        do {
            // "//" stands for a step of its own. Not every parser minds a third slash.
            bool deep = false;
            while (Take(L"/"))
                deep = true;
            from = ReadStep(evaluations, from, deep);
        } while (Take(L"/"));
        return from;
    }

    Nodes ReadStep(double evaluations, Nodes from, bool deep) {
        wstring_view axis = L"child";
        wstring_view test = L"node()";
        if (Take(L"..")) {
            axis = L"parent";
        } else if (Take(L".")) {
            axis = L"self";
        } else {
            if (Take(L"@")) axis = L"attribute";
            test = ReadTest(&axis);
        }
        if (deep) from = Walk(evaluations, from, AxisNamed(L"descendant-or-self"), L"node()", false);
        return Walk(evaluations, from, AxisNamed(axis), test, true);
    }

    // A node test, which an axis may precede: the local name that it wants, "*" or "node()".
    wstring_view ReadTest(wstring_view* axis) {
        SkipBlanks();
        wstring_view name = TakeName();
        if (!name.empty() && Take(L"::")) {
            AxisNamed(*axis = name);
            SkipBlanks();
            name = TakeName();
        }
        if (name.empty()) {
            Require(Take(L"*"));
            return L"*";
        }
        if (!rest_.starts_with(L"::") && SkipOne(L":")) {
            if (Take(L"*")) return L"*";
            name = TakeName();
            Require(!name.empty());
            return name;
        }
        if (!Take(L"(")) return name;
        // node(), text() and the like; one of them may have a string.
        if (StartsLiteral()) ReadLiteral(Root(1));
        Require(Take(L")"));
        return L"node()";
    }

    // From the nodes along the axis to those that pass the test, and the predicates if there may be any.
    Nodes Walk(double evaluations, const Nodes& from, const Axis& axis, wstring_view test, bool predicates) {
        const double reach = Size(axis.reach);
        const double repeats = from.repeats * Size(axis.origins);  // how often one node is reached
        const double all =
            axis.reach == Extent::kSubtree ? from.total + from.below : repeats * Passing(axis, L"*").total;
        const double visits = std::min(from.total * reach, all);
        work_ += from.total * kStep + visits * kVisit;

        const Nodes passing = Passing(axis, test);
        const Nodes found = Some(passing, std::min(visits, repeats * passing.total), repeats);
        if (predicates) ReadPredicates(found);

        // What is reached from several nodes of one evaluation counts once, after a search for doubles.
        const double most = std::min({passing.total, from.most * reach, visits});
        if (axis.origins != Extent::kOne && from.most > 1) work_ += found.total * most * kCompared;
        Nodes distinct =
            Some(passing, std::min(found.total, evaluations * most), std::min(repeats, evaluations));
        distinct.most = most;
        return distinct;
    }

    void ReadPredicates(const Nodes& candidates) {
        while (Take(L"[")) {
            work_ += candidates.total * kStep;
            ReadExpression(candidates);
            Require(Take(L"]"));
        }
    }

    // Nothing where a step begins.
    std::optional<Nodes> ReadPrimary(const Nodes& contexts) {
        if (Take(L"(")) {
            const Nodes value = ReadExpression(contexts);
            Require(Take(L")"));
            return value;
        }
        if (StartsLiteral()) return ReadLiteral(contexts);
        if (!rest_.empty() && IsDigit(rest_[rest_.size() > 1 && rest_[0] == L'.' ? 1 : 0])) {
            SkipAll(L"0123456789.");
            // Exponents are not XPath's own, but some evaluators know them.
            if (SkipOne(L"eE")) {
                SkipOne(L"+-");
                SkipAll(L"0123456789");
            }
            return Nodes();
        }
        const wstring_view before = rest_;
        const wstring_view name = TakeFunction();
        if (!name.empty()) return ReadArguments(contexts, name);
        rest_ = before;
        return std::nullopt;
    }

    Nodes ReadLiteral(const Nodes& contexts) {
        const size_t end = rest_.find(rest_.front(), 1);
        Require(end != wstring_view::npos);
        rest_.remove_prefix(end + 1);
        Nodes value;
        value.text = contexts.total * static_cast<double>(end - 1);
        return value;
    }

    // Of the function of that local name, behind the parenthesis.
    Nodes ReadArguments(const Nodes& contexts, wstring_view name) {
        work_ += contexts.total * kStep;
        double text = 0;
        double first = contexts.text;  // without arguments, that of the context node
        size_t count = 0;
        while (!Take(L")")) {
            Require(count == 0 || Take(L","));
            const Nodes argument = ReadExpression(contexts);
            ChargeText(argument);
            text += argument.text;
            // Searched for in the first, or each of its characters is.
            if (++count == 1) {
                first = argument.text;
            } else if (name != L"concat") {
                work_ += first * std::min(argument.text, Text()) * kCompared;
            }
        }
        if (name == L"concat") work_ += text * kJoined;
        Nodes value;
        if (name == L"id") {
            value = Some(Passing(AxisNamed(L"child"), L"*"), contexts.total * All(), contexts.total);
            value.most = All();
        }
        value.text = count == 0 ? first : text;
        return value;
    }

    void ChargeText(const Nodes& value) { work_ += value.total * kString + value.text * kCharacter; }

    // The document's node, for so many evaluations.
    Nodes Root(double times) const { return {times, times, times * Text(), times * All(), 1}; }

    // `total` of these nodes of the document, none more than `repeats` times.
    Nodes Some(const Nodes& nodes, double total, double repeats) const {
        const double times = std::min(repeats, total);
        return {total, times, std::min(nodes.text * times, total * Text()),
                std::min(nodes.below * times, total * All())};
    }

    // The nodes of the document that pass the test. A name that is not ASCII is taken for any.
    Nodes Passing(const Axis& axis, wstring_view test) const {
        if (axis.reach == Extent::kAttributes) {
            const double each = axis.origins == Extent::kOne ? 1 : All();
            return {Size(axis.reach) * each, 1, static_cast<double>(answer_.attributeText), 0};
        }
        const bool ascii = std::all_of(test.begin(), test.end(), [](wchar_t c) { return c < 0x80; });
        if (test == L"*" || test == L"node()" || !ascii) {
            return {All(), 1, static_cast<double>(answer_.all.text) + 2 * Text(),
                    static_cast<double>(answer_.all.nodes) + All()};
        }
        const auto found = answer_.byName.find(std::string(test.begin(), test.end()));
        if (found == answer_.byName.end()) return {0, 1, 0, 0};
        const AnswerShape::Elements& named = found->second;
        return {static_cast<double>(named.count), 1, static_cast<double>(named.text),
                static_cast<double>(named.nodes)};
    }

    // In nodes.
    double Size(Extent extent) const {
        const size_t all = answer_.nodes + 1;
        const size_t sizes[] = {1, answer_.widest, answer_.depth + 1, answer_.attributes + 1, all, all};
        return static_cast<double>(sizes[static_cast<size_t>(extent)]);
    }
    // Nodes of the document, its own among them; characters.
    double All() const { return static_cast<double>(answer_.nodes) + 1; }
    double Text() const { return static_cast<double>(answer_.text + answer_.attributeText); }

    bool StartsLiteral() {
        SkipBlanks();
        return rest_.starts_with(L'"') || rest_.starts_with(L'\'');
    }
    bool StartsStep() {
        SkipBlanks();
        return !rest_.empty() && (StartsXPathName(rest_.front()) ||
                                  wstring_view(L"*@./").find(rest_.front()) != wstring_view::npos);
    }
    // A function's local name and the parenthesis behind it, as opposed to a node test; empty without them.
    wstring_view TakeFunction() {
        wstring_view name = TakeName();
        for (const wstring_view test : {L"node", L"text", L"comment", L"processing-instruction"})
            if (name == test) return {};
        if (!name.empty() && SkipOne(L":")) name = TakeName();
        return !name.empty() && Take(L"(") ? name : wstring_view();
    }
    wstring_view TakeName() {
        const wstring_view name = rest_.substr(0, XPathNameLength(rest_));
        rest_.remove_prefix(name.size());
        return name;
    }
    bool Take(wstring_view text) {
        SkipBlanks();
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    bool TakeOneOf(std::initializer_list<wstring_view> texts) {
        return std::any_of(texts.begin(), texts.end(), [this](wstring_view text) { return Take(text); });
    }
    bool SkipOne(wstring_view characters) {
        if (rest_.empty() || characters.find(rest_.front()) == wstring_view::npos) return false;
        rest_.remove_prefix(1);
        return true;
    }
    void SkipAll(wstring_view characters) {
        while (SkipOne(characters)) {
        }
    }
    void SkipBlanks() { SkipAll(L" \t\r\n"); }

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
