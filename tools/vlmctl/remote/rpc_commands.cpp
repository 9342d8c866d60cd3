// vlmctl rpc: the remote procedures of a monitor, on this machine or another one.
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "rpc/codes.h"
#include "tools/vlmctl/console/code_text.h"
#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/exchange/rpc_client.h"
#include "tools/vlmctl/exchange/rpc_wait.h"
#include "tools/vlmctl/remote/hex_text.h"
#include "tools/vlmctl/remote/remote_commands.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

constexpr std::uint32_t kMostReply = 1'048'576;
constexpr size_t kMostArguments = 64;
constexpr unsigned kMostThreads = 500;
constexpr unsigned kLongestWait = 3'600;  // seconds
constexpr size_t kMostGrowth = size_t{32} << 20;
constexpr size_t kMostGrowthPerCall = size_t{4} << 20;  // the largest reply a few times, and a thread

struct RpcOptions {
    std::string endpoint = "local";
    std::string host;
    std::string printer;
    std::string capacity = "8192";
    bool raw = false;
    bool json = false;
    unsigned times = 1;
    unsigned timeout = 60;
    // of query
    std::string dataId;
    // of command
    std::vector<std::string> values{"0", "0"};
    std::string word = "0";
    std::string kind = "0";
    std::vector<std::string> longs;
    std::vector<std::string> shorts;
};

std::shared_ptr<const RpcClient> ClientFor(const RpcOptions& options) {
    static const std::map<std::string, RpcRoute> kRoutes{
        {"local", RpcRoute::kLocal}, {"pipe", RpcRoute::kPipe}, {"tcp", RpcRoute::kTcp}};
    const RpcRoute route = kRoutes.at(options.endpoint);
    if (route == RpcRoute::kLocal && !options.host.empty())
        throw CommandError("--host needs --endpoint pipe or tcp; the local endpoint is on this machine only",
                           kWrongUsage);
    return std::make_shared<const RpcClient>(route, options.host);
}

// The procedures take the printer's name in the system's code page.
std::string InCodePage(const std::string& utf8) {
    const std::wstring name = FromUtf8(utf8);
    std::string text(name.size() * 4, '\0');  // no code page takes more for a character
    const int length = WideCharToMultiByte(CP_ACP, 0, name.data(), static_cast<int>(name.size()), text.data(),
                                           static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(static_cast<size_t>(length));
    if (FromCodePage(text) != name)
        throw CommandError("the name '" + utf8 + "' cannot be represented in this system's code page");
    return text;
}

// What the procedures return.
constexpr CodeText kResults[] = {{rpc::kPortBusy, "the port is busy with a job or another caller"},
                                 {rpc::kNothingBelow, "the lower monitor could not open the port"},
                                 {rpc::kOutOfMemory, "the print server is out of memory"},
                                 {rpc::kBadAnswer, "the printer's answer is malformed"},
                                 {rpc::kPrinterRefused, "the printer refused the request"},
                                 {rpc::kBadArguments, "the name is too long or an argument is out of range"},
                                 {rpc::kNoSuchPrinter, "no USB printer of that name has Bidi enabled"},
                                 {rpc::kReplyTooSmall, "the answer is larger than the capacity"},
                                 {rpc::kPortNotOpen, "the printer's port is not open in the spooler"},
                                 {rpc::kPortClosing, "the port was closed during the call"}};

std::string Explain(const char* who, const std::string& code, const char* meaning) {
    return fmt::format("{} {}", who, code) + (meaning != nullptr ? std::string(": ") + meaning : "");
}

Json ToJson(const RpcReply& reply) {
    const bool answered = reply.status == 0 && reply.problem.empty();
    return {{"rpcStatus", reply.status},
            {"result", answered ? Json(reply.result) : Json(nullptr)},
            {"data", answered && reply.result == 0 ? Json(fmt::format("{:02x}", fmt::join(reply.bytes, "")))
                                                   : Json(nullptr)}};
}

void Show(const RpcReply& reply, const RpcOptions& options) {
    if (options.json) PrintJson(ToJson(reply));
    if (reply.status != 0)
        throw CommandError(Explain("RPC status", StatusNumber(reply.status), StatusMeaning(reply.status)));
    if (!reply.problem.empty()) throw CommandError("this is not the monitor's service: " + reply.problem);
    if (reply.result != 0)
        throw CommandError(Explain("the procedure returned", std::to_string(reply.result),
                                   TextOfCode(kResults, reply.result)));
    if (options.json) return;
    if (options.raw) {
        Print(HexText(reply.bytes));
        return;
    }
    Print(Counted(reply.bytes.size(), "byte"));
    if (!reply.bytes.empty()) Print(HexDump(reply.bytes));
}

// Each call on a thread of its own, all at once.
void CallAtOnce(const std::function<RpcReply()>& makeCall, std::vector<RpcReply>& replies) {
    std::vector<std::thread> threads;
    threads.reserve(replies.size());
    for (RpcReply& reply : replies)
        threads.emplace_back([&] { reply = makeCall(); });
    for (std::thread& thread : threads)
        thread.join();
}

// Makes as many calls as `--times` says and shows the reply of one, or counts the outcomes of more. Calls
// that are given up end with the program, so what `makeCall` uses has to be its own.
void Run(const RpcOptions& options, const std::function<RpcReply()>& makeCall) {
    const auto replies = std::make_shared<std::vector<RpcReply>>(options.times);
    switch (RunWatched([replies, makeCall] { CallAtOnce(makeCall, *replies); }, options.timeout * 1'000,
                       kMostGrowth + options.times * kMostGrowthPerCall)) {
        case WaitEnd::kDone:
            break;
        case WaitEnd::kTimeUp:
            throw CommandError(fmt::format("no answer within {} s", options.timeout));
        case WaitEnd::kTooMuch:
            throw CommandError("this is not the monitor's service: an endless reply");
    }
    if (options.times == 1) {
        Show(replies->front(), options);
        return;
    }
    std::map<std::string, size_t> outcomes;
    for (const RpcReply& reply : *replies)
        ++outcomes[reply.status != 0        ? "status " + StatusNumber(reply.status)
                   : !reply.problem.empty() ? "not a reply of the monitor"
                                            : fmt::format("result {}", reply.result)];
    if (options.json) {
        Json list = Json::array();
        for (const auto& [outcome, count] : outcomes)
            list.push_back({{"outcome", outcome}, {"count", count}});
        PrintJson(list);
        return;
    }
    for (const auto& [outcome, count] : outcomes)
        PrintLine("{} {}", outcome, count);
}

void CheckCount(size_t count, const char* what) {
    if (count > kMostArguments)
        throw CommandError(fmt::format("more than {} {}s", kMostArguments, what), kWrongUsage);
}

void Query(const RpcOptions& options) {
    const std::uint32_t dataId = ParseNumber(options.dataId, "data id");
    const std::uint32_t capacity = ParseNumber(options.capacity, "capacity", kMostReply);
    const std::string printer = InCodePage(options.printer);
    Run(options, [=, client = ClientFor(options)] { return client->Query(printer, dataId, capacity); });
}

void Command(const RpcOptions& options) {
    RpcCommand command;
    command.value1 = ParseNumber(options.values.at(0), "value");
    command.value2 = ParseNumber(options.values.at(1), "value");
    command.word = static_cast<std::uint16_t>(ParseNumber(options.word, "word", 0xFFFF));
    command.kind = static_cast<std::uint8_t>(ParseNumber(options.kind, "address kind", 0xFF));
    CheckCount(options.longs.size(), "32-bit id");
    CheckCount(options.shorts.size(), "16-bit id");
    command.longs = ParseNumbers<std::uint32_t>(options.longs, "32-bit id");
    command.shorts = ParseNumbers<std::uint16_t>(options.shorts, "16-bit id");
    const std::uint32_t capacity = ParseNumber(options.capacity, "capacity", kMostReply);
    const std::string printer = InCodePage(options.printer);
    Run(options, [=, client = ClientFor(options)] { return client->Command(printer, command, capacity); });
}

void AddCommonOptions(CLI::App& command, RpcOptions& options) {
    command.add_option("PRINTER", options.printer, "USB port (USB001) or shared printer (\\\\server\\share)")
        ->required();
    command.add_option("--endpoint", options.endpoint, "Endpoint to call")
        ->check(CLI::IsMember({"local", "pipe", "tcp"}))
        ->capture_default_str();
    command.add_option("--host", options.host, "Machine to call (default: this one)");
    command.add_option("--capacity", options.capacity, "Maximum size of the reply in bytes")
        ->capture_default_str();
    CLI::Option* raw = command.add_flag("--raw", options.raw, "Print the reply as one line of hex digits");
    command.add_flag("--json", options.json, "Print JSON instead of text")->excludes(raw);
    command.add_option("--times", options.times, "Make this many calls at once and count the outcomes")
        ->check(CLI::Range(1U, kMostThreads));
    command.add_option("--timeout", options.timeout, "Time-out in seconds")
        ->check(CLI::Range(1U, kLongestWait))
        ->capture_default_str();
}

}  // namespace

void AddRpcCommands(CLI::App& app) {
    CLI::App* rpc = app.add_subcommand("rpc", "Call the monitor's remote procedures");
    rpc->require_subcommand(1);
    auto options = std::make_shared<RpcOptions>();

    CLI::App* query = rpc->add_subcommand("query", "Read a data block from the printer");
    AddCommonOptions(*query, *options);
    query->add_option("ID", options->dataId, "Data id")->required();
    query->callback([options] { Query(*options); });

    CLI::App* command = rpc->add_subcommand("command", "Read attributes from the printer");
    AddCommonOptions(*command, *options);
    command->add_option("--values", options->values, "The two words for the frame's header")->expected(2);
    command->add_option("--word", options->word, "First word of the request");
    command->add_option("--kind", options->kind, "Address kind (only 0 can be sent)");
    command->add_option("--long", options->longs, "A 32-bit id; may be repeated");
    command->add_option("--short", options->shorts, "A 16-bit id (an attribute: 180); may be repeated");
    command->callback([options] { Command(*options); });
}

}  // namespace vlm::ctl
