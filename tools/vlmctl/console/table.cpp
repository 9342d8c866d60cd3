#include "tools/vlmctl/console/table.h"

#include <algorithm>

#include "tools/vlmctl/console/console.h"

namespace vlm::ctl {

namespace {

// Values wider than this do not widen their column.
constexpr size_t kWidestColumn = 60;

}  // namespace

size_t Width(const std::string& utf8) {
    return static_cast<size_t>(
        std::ranges::count_if(utf8, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Padded(const std::string& utf8, size_t width) {
    return utf8 + std::string(width - std::min(width, Width(utf8)), ' ');
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
        for (size_t i = 0; i + 1 < row.size(); ++i)
            line += Padded(row[i], widths[i]) + "  ";
        PrintLine("{}{}", line, row.back());
    }
}

void PrintJson(const Json& json) {
    // Invalid UTF-16 of a printer arrives here as replacement characters already.
    PrintLine("{}", json.dump(2, ' ', false, Json::error_handler_t::replace));
}

}  // namespace vlm::ctl
