// An XPath expression in the second line and an answer behind it: whatever an XPath compiler that is not ours
// takes has an estimate, unless it nests too deeply; an estimate is a number, covers what an evaluator does,
// and grows with the answer. The first line is the answer's growth: a letter for each doubling of one of its
// figures.
#include "bidi/filter_cost.h"

#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "fuzz_input.h"
#include "tests/soap/utf8.h"
#include "util/xml_bounds.h"

namespace {

using vlm::AnswerShape;

constexpr size_t kDeepest = 100;
constexpr unsigned long kMostOperations = 100'000;
constexpr size_t kLargestFigure = 1u << 28;  // far more than any answer has

void Grow(AnswerShape& shape, char figure) {
    const auto grow = [](size_t& value) { value = std::min(2 * value + 1, kLargestFigure); };
    const std::pair<char, size_t&> figures[] = {
        {'n', shape.nodes},     {'a', shape.attributes}, {'d', shape.depth},
        {'w', shape.widest},    {'t', shape.text},       {'x', shape.attributeText},
        {'A', shape.all.count}, {'T', shape.all.text},   {'S', shape.all.nodes}};
    for (const auto& [letter, value] : figures)
        if (letter == figure) grow(value);
    for (auto& [name, elements] : shape.byName) {
        if (figure == 'N') grow(elements.count);
        if (figure == 'B') grow(elements.text);
        if (figure == 'C') grow(elements.nodes);
    }
}

// What the compiler below lets pass although it is no XPath: a call without an end, nothing behind "|", and
// blanks between slashes.
bool IsLax(const std::string& xpath) {
    int open = 0;
    char quote = 0;
    char last = 0;
    bool blank = false;
    for (const char c : xpath) {
        if (quote != 0 || c == '\'' || c == '"') {
            quote = quote == 0 ? c : quote == c ? char{0} : quote;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            blank = true;
            continue;
        } else if (c == '/' && last == '/' && blank) {
            return true;
        } else {
            open += c == '(' ? 1 : c == ')' ? -1 : 0;
        }
        last = c;
        blank = false;
    }
    return open > 0 || last == '|';
}

bool Compiles(const std::string& xpath) {
    const xmlXPathContextPtr context = xmlXPathNewContext(nullptr);
    context->error = [](void*, auto*) {};
    const xmlXPathCompExprPtr compiled =
        xmlXPathCtxtCompile(context, reinterpret_cast<const xmlChar*>(xpath.c_str()));
    xmlXPathFreeCompExpr(compiled);
    xmlXPathFreeContext(context);
    return compiled != nullptr;
}

// The operations that an evaluator needs for the expression, as it counts them; 0 when it fails.
double Operations(const std::string& xpath, std::string_view document) {
    if (vlm::CheckXmlBounds(document, vlm::kPrinterAnswerLimits) != vlm::XmlRefusal::kNone) return 0;
    const xmlDocPtr tree = xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr, "UTF-8",
                                         XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET);
    if (tree == nullptr) return 0;
    const xmlXPathContextPtr context = xmlXPathNewContext(tree);
    context->error = [](void*, auto*) {};
    context->opLimit = kMostOperations;
    for (const char* const prefix : {"p", "pri", "vln", "wprt"})
        xmlXPathRegisterNs(context, reinterpret_cast<const xmlChar*>(prefix),
                           reinterpret_cast<const xmlChar*>("urn:p"));
    const xmlXPathObjectPtr result =
        xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(xpath.c_str()), context);
    const double operations = static_cast<double>(context->opCount);
    const bool counts = result != nullptr || context->opCount >= kMostOperations;
    xmlXPathFreeObject(result);
    xmlXPathFreeContext(context);
    xmlFreeDoc(tree);
    return counts ? operations : 0;
}

std::string_view TakeLine(std::string_view* rest) {
    const std::string_view line = rest->substr(0, rest->find('\n'));
    rest->remove_prefix(std::min(line.size() + 1, rest->size()));
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string_view growth = TakeLine(&rest);
    const std::wstring xpath = vlm::Wide(TakeLine(&rest));
    AnswerShape shape = vlm::ShapeOf(rest);

    std::optional<double> before = vlm::EstimateWork(xpath, shape);
    if (!before) {
        const auto opened =
            std::count_if(xpath.begin(), xpath.end(), [](wchar_t c) { return c == L'(' || c == L'['; });
        const bool hasVariable = xpath.find(L'$') != std::wstring::npos;
        const bool hasNul = xpath.find(L'\0') != std::wstring::npos;
        FUZZ_CHECK(IsLax(vlm::Narrow(xpath)) || hasVariable || hasNul ||
                   static_cast<size_t>(opened) >= kDeepest || !Compiles(vlm::Narrow(xpath)));
        return 0;
    }
    FUZZ_CHECK(std::isfinite(*before) && *before >= 0);
    // A few for the expression itself, in which not all is work.
    const double few = 4 * static_cast<double>(xpath.size()) + 16;
    FUZZ_CHECK(Operations(vlm::Narrow(xpath), rest) <= 2 * *before + few);
    for (const char figure : growth) {
        Grow(shape, figure);
        const std::optional<double> after = vlm::EstimateWork(xpath, shape);
        FUZZ_CHECK(after && std::isfinite(*after));
        // But for the last digits, which the order of adding decides.
        FUZZ_CHECK(*after >= *before * (1 - 1e-9));
        before = after;
    }
    return 0;
}
