#include "tools/vlmctl/bidi/output.h"

#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/table.h"

namespace vlm::ctl {

void PrintAnswers(const std::vector<BidiAnswer>& answers, bool json) {
    const bool withSource = !answers.empty() && !answers.front().source.empty();
    if (json) {
        Json list = Json::array();
        for (const BidiAnswer& answer : answers) {
            list.push_back({{"path", answer.path},
                            {"type", answer.type},
                            {"value", answer.hasValue ? Json(answer.value) : Json(nullptr)},
                            {"result", answer.result}});
            if (withSource) list.back()["source"] = answer.source;
        }
        PrintJson(list);
        return;
    }
    Rows rows{{"PATH", "TYPE", "VALUE", "RESULT"}};
    if (withSource) rows.front().emplace_back("SOURCE");
    for (const BidiAnswer& answer : answers) {
        rows.push_back({Shown(answer.path), answer.type, answer.hasValue ? Shown(answer.value) : "-",
                        fmt::format("{} {}", answer.result, ResultText(answer.result))});
        if (withSource) rows.back().push_back(answer.source);
    }
    PrintTable(rows);
}

void PrintElements(const std::vector<NeededElement>& elements, bool json) {
    if (json) {
        Json list = Json::array();
        for (const NeededElement& element : elements) {
            list.push_back(element.answered ? Json{{"name", element.name}, {"answered", *element.answered}}
                                            : Json(element.name));
        }
        PrintJson(list);
        return;
    }
    Rows rows;
    for (const NeededElement& element : elements) {
        rows.push_back({Shown(element.name)});
        if (element.answered) rows.back().emplace_back(*element.answered ? "answered" : "not answered");
    }
    if (!rows.empty()) PrintTable(rows);
}

}  // namespace vlm::ctl
