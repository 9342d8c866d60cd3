#include "tools/vlmctl/bidi/check_output.h"

#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/product.h"
#include "tools/vlmctl/console/table.h"
#include "util/text.h"
#include "util/trace.h"

namespace vlm::ctl {

namespace {

constexpr size_t kLongestFileName = 1024;

const char* SeverityName(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

// A reference of the kind that a URI has: a path as it was given stays one, relative to wherever that was.
std::string UriOf(const std::wstring& path) {
    std::string uri;
    for (const char c : ToUtf8(path)) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           std::string_view("-._~/!$&'()*+,;=@").find(c) != std::string_view::npos;
        if (c == '\\') {
            uri += '/';
        } else if (plain) {
            uri += c;
        } else {
            uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
    }
    if (path.size() > 1 && path[1] == L':') return "file:///" + uri.replace(1, 3, ":");
    return uri.starts_with("//") ? "file:" + uri : uri.starts_with("/") ? "file://" + uri : uri;
}

Json SarifRules() {
    Json rules = Json::array();
    for (const RuleText& rule : Rules()) {
        rules.push_back({{"id", rule.id},
                         {"shortDescription", {{"text", rule.text}}},
                         {"defaultConfiguration", {{"level", SeverityName(rule.severity)}}}});
    }
    return rules;
}

Json SarifResults(const CheckReport& report) {
    Json results = Json::array();
    for (const Finding& finding : report.findings) {
        const Json region = {{"startLine", finding.place.line}, {"startColumn", finding.place.column}};
        const Json location = {
            {"physicalLocation", {{"artifactLocation", {{"uri", UriOf(finding.file)}}}, {"region", region}}}};
        results.push_back({{"ruleId", About(finding.rule).id},
                           {"ruleIndex", static_cast<int>(finding.rule)},
                           {"level", SeverityName(finding.HowBad())},
                           {"message", {{"text", ToUtf8(finding.text)}}},
                           {"locations", Json::array({location})}});
    }
    return results;
}

Json SarifInvocation(const CheckReport& report) {
    Json notifications = Json::array();
    for (const std::wstring& problem : report.unreadable)
        notifications.push_back({{"level", "error"}, {"message", {{"text", ToUtf8(problem)}}}});
    return {{"executionSuccessful", notifications.empty()}, {"toolExecutionNotifications", notifications}};
}

}  // namespace

void PrintFindings(const CheckReport& report) {
    for (const Finding& finding : report.findings) {
        PrintLine("{}:{}:{}: {}: {} [{}]", ToUtf8(Printable(finding.file, kLongestFileName)),
                  finding.place.line, finding.place.column, SeverityName(finding.HowBad()),
                  ToUtf8(finding.text), About(finding.rule).id);
    }
}

void PrintFindingsAsJson(const CheckReport& report) {
    Json list = Json::array();
    for (const Finding& finding : report.findings) {
        list.push_back({{"file", ToUtf8(finding.file)},
                        {"line", finding.place.line},
                        {"column", finding.place.column},
                        {"severity", SeverityName(finding.HowBad())},
                        {"rule", About(finding.rule).id},
                        {"text", ToUtf8(finding.text)}});
    }
    PrintJson(list);
}

void PrintFindingsAsSarif(const CheckReport& report) {
    const Json driver = {{"name", "vlmctl bidi check"}, {"version", OwnVersion()}, {"rules", SarifRules()}};
    const Json run = {{"tool", {{"driver", driver}}},
                      {"columnKind", "unicodeCodePoints"},
                      {"invocations", Json::array({SarifInvocation(report)})},
                      {"results", SarifResults(report)}};
    PrintJson({{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
               {"version", "2.1.0"},
               {"runs", Json::array({run})}});
}

}  // namespace vlm::ctl
