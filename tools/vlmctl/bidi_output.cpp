#include "tools/vlmctl/bidi_output.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "spooler/host/monitor_host.h"
#include "tools/vlmctl/console.h"
#include "util/vlutil.h"

namespace vlm::ctl {

namespace {

using host::FromUtf8;
using host::ToUtf8;
using Json = nlohmann::ordered_json;
using Rows = std::vector<std::vector<std::string>>;

// Values wider than this do not widen their column.
constexpr size_t kWidestColumn = 60;

// Nothing of what a file or a printer holds may steer a terminal.
std::string Shown(const std::string& text) {
    return ToUtf8(Printable(FromUtf8(text)));
}

size_t Width(const std::string& utf8) {
    return static_cast<size_t>(std::count_if(
        utf8.begin(), utf8.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void PrintTable(const Rows& rows) {
    std::vector<size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            const size_t width = Width(row[i]);
            if (width <= kWidestColumn) widths[i] = std::max(widths[i], width);
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 == row.size()) break;
            const size_t width = Width(row[i]);
            line.append((width < widths[i] ? widths[i] - width : 0) + 2, ' ');
        }
        PrintLine("{}", line);
    }
}

// Invalid UTF-16 of a printer arrives here as replacement characters already.
std::string Dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

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
        PrintLine("{}", Dump(list));
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
        PrintLine("{}", Dump(list));
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
