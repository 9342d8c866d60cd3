#include "tools/vlmctl/bidi/output.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/table.h"

namespace vlm::ctl {

namespace {

std::string PlaceOf(const Declared& declared) {
    return fmt::format("{} in {}:{}:{}", declared.element, Shown(declared.file), declared.line,
                       declared.column);
}

void PrintSearch(const Search& search, const std::optional<size_t>& own) {
    PrintLine("    asks for  {}{}", search.query.empty() ? "nothing" : Shown(search.query),
              !search.sent   ? ""
              : *search.sent ? ", which the printer sent"
                             : ", which the printer did not send");
    PrintLine("    filter    {}", Shown(search.filter));
    if (!search.tried) return;
    if (search.count == 0) PrintLine("    finds     nothing");
    for (size_t i = 0; i < search.found.size(); ++i) {
        PrintLine("    {}  {} at {}{}", i == 0 ? "finds   " : "        ", "'" + Shown(search.found[i]) + "'",
                  Shown(search.nodes[i]), own == i ? ", which makes this level" : "");
    }
    if (search.count > search.found.size())
        PrintLine("              and {} more", search.count - search.found.size());
}

void PrintBinding(const BindingStep& binding) {
    PrintLine("  parameter {}: {}", Shown(binding.parameter), PlaceOf(binding.declared));
    PrintSearch(binding.search, binding.node);
}

void PrintStep(const Step& step) {
    // A Parameter that carries its template is the level's declaration itself.
    if (step.bindings.size() == 1 && step.declared.element == "Parameter") {
        const BindingStep& binding = step.bindings.front();
        PrintLine("  {}: made by the parameter {}, {}", Shown(step.name), Shown(binding.parameter),
                  PlaceOf(step.declared));
        return PrintSearch(binding.search, binding.node);
    }
    PrintLine("  {}: {}", Shown(step.name), PlaceOf(step.declared));
    for (const BindingStep& binding : step.bindings)
        PrintBinding(binding);
}

// What of a text counts.
const char* Conversion(const std::string& type) {
    if (type == "BIDI_INT") return "; only its sign and leading digits count";
    if (type == "BIDI_FLOAT") return ", as far as that is a decimal number";
    if (type == "BIDI_BOOL") return "; only 'true' is true";
    if (type == "BIDI_BLOB") return ", as base64";
    return "";
}

void PrintResult(const Explanation& explanation) {
    const BidiAnswer& answer = explanation.answer;
    if (explanation.verdict == Verdict::kFound) {
        PrintLine("  value is '{}' ({}), from the text '{}'{}", Shown(answer.value), answer.type,
                  Shown(explanation.text.value_or("")), Conversion(answer.type));
        return;
    }
    if (explanation.text) PrintLine("  the text is '{}'", Shown(*explanation.text));
    PrintLine("  {}: {}", VerdictName(explanation.verdict), Shown(explanation.why));
    for (const std::string& path : explanation.nearest)
        PrintLine("  similar   {}", Shown(path));
}

Json JsonOf(const Declared& declared) {
    return {{"element", declared.element},
            {"file", declared.file},
            {"line", declared.line},
            {"column", declared.column}};
}

Json JsonOf(const Search& search) {
    Json nodes = Json::array();
    for (size_t i = 0; i < search.found.size(); ++i)
        nodes.push_back({{"text", search.found[i]}, {"at", search.nodes[i]}});
    return {{"query", OrNull(search.query)},
            {"sent", OrNull(search.sent)},
            {"filter", search.filter},
            {"count", search.tried ? Json(search.count) : Json(nullptr)},
            {"nodes", std::move(nodes)}};
}

Json JsonOf(const std::vector<BindingStep>& bindings) {
    Json list = Json::array();
    for (const BindingStep& binding : bindings) {
        list.push_back({{"parameter", binding.parameter},
                        {"declared", JsonOf(binding.declared)},
                        {"search", JsonOf(binding.search)},
                        {"node", OrNull(binding.node)}});
    }
    return list;
}

Json JsonOf(const Explanation& explanation) {
    Json steps = Json::array();
    for (const Step& step : explanation.steps) {
        steps.push_back({{"name", step.name},
                         {"declared", JsonOf(step.declared)},
                         {"parameters", JsonOf(step.bindings)},
                         {"search", step.search ? JsonOf(*step.search) : Json(nullptr)}});
    }
    const BidiAnswer& answer = explanation.answer;
    const bool asked = explanation.asked && explanation.verdict != Verdict::kFailed;
    return {{"path", explanation.path},
            {"steps", std::move(steps)},
            {"makes", JsonOf(explanation.makesHere)},
            {"reason", VerdictName(explanation.verdict)},
            {"why", explanation.why},
            {"similar", explanation.nearest},
            {"text", OrNull(explanation.text)},
            {"type", asked ? Json(answer.type) : Json(nullptr)},
            {"value", answer.hasValue ? Json(answer.value) : Json(nullptr)},
            {"result", asked ? Json(answer.result) : Json(nullptr)}};
}

}  // namespace

void PrintExplanation(const Explanation& explanation, bool json) {
    if (json) return PrintJson(JsonOf(explanation));
    PrintLine("{}", Shown(explanation.path));
    for (const Step& step : explanation.steps) {
        PrintStep(step);
        if (step.search) PrintSearch(*step.search, std::nullopt);
    }
    for (const BindingStep& binding : explanation.makesHere)
        PrintBinding(binding);
    PrintResult(explanation);
}

}  // namespace vlm::ctl
