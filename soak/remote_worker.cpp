#include <algorithm>

#include "soak/workers.h"

namespace vlm::soak {

namespace {

constexpr uint16_t kAttributes[] = {180, 2405};
constexpr size_t kAttributeSizes[] = {8, 28};
constexpr DWORD kBusy = ERROR_ACCESS_DENIED;  // another caller held the port for the whole second
constexpr DWORD kClosed = ERROR_BAD_PATHNAME;
constexpr DWORD kOpening = ERROR_INVALID_HANDLE;  // nothing is below the port yet
constexpr DWORD kClosing = ERROR_OPERATION_ABORTED;

DWORD CodeOf(Reply reply) {
    switch (reply) {
        case Reply::kRefused:
        case Reply::kThrows:
            return ERROR_GEN_FAILURE;
        case Reply::kGarbage:
        case Reply::kSilence:
            return ERROR_INVALID_DATA;
        case Reply::kReadFails:
        case Reply::kWriteFails:
            return kPortError;
        default:
            return ERROR_SUCCESS;
    }
}

Reply DrawReply(Random& random) {
    if (!random.OneIn(3)) return Reply::kGood;
    return static_cast<Reply>(random.Below(static_cast<uint32_t>(Reply::kThrows) + 1));
}

}  // namespace

void RemoteWorker::Step(Random& random) {
    const uint32_t where = random.Below(8);
    const bool own = where < 4;
    const bool shared = where == 4 || where == 5;
    const bool unknown = where == 7 && random.OneIn(4);
    const std::string port = own ? own_ : shared ? "USB-shared" : "USB-turning";
    // By the port's name, or by the share that the printer has on some server.
    const std::string printer = unknown           ? "USB-unknown"
                                : random.OneIn(3) ? "\\\\server\\share-" + port
                                                  : port;
    const bool command = random.OneIn(2);
    const size_t attribute = random.Below(2);
    ReplyKey key{DrawReply(random), random.Below(1024), 0};
    if (!command) key.size = random.OneIn(4) ? random.Below(8193) : random.Below(200);
    const size_t size = command ? kAttributeSizes[attribute] : key.size;
    const bool tight = size > 1 && random.OneIn(10);
    const auto capacity = static_cast<uint32_t>(tight ? size - 1 : size + random.Between(1, 50));

    ctl::RpcReply reply;
    const DWORD code = DoForCode("remote call", [&] {
        if (command) {
            ctl::RpcCommand arguments;
            arguments.value1 = key.Pack();
            arguments.value2 = static_cast<uint32_t>(random.Next());
            arguments.shorts = {kAttributes[attribute]};
            reply = client_.Command(printer, arguments, capacity);
        } else {
            reply = client_.Query(printer, key.Pack(), capacity);
        }
        return reply.status != 0 ? reply.status : reply.result;
    });

    DWORD planned = CodeOf(key.reply);
    if (planned == 0 && tight) planned = ERROR_INSUFFICIENT_BUFFER;
    if (unknown) planned = ERROR_OPEN_FAILED;
    const bool turns = !own && !shared && !unknown;
    bool expected = reply.status == 0 && code == planned;
    expected = expected || (turns && (code == kClosed || code == kOpening || code == kClosing));
    expected = expected || ((shared || turns) && code == kBusy);
    const auto describe = [&] {
        return std::string(command ? "command" : "query") + " to " + printer + ", reply kind " +
               std::to_string(static_cast<int>(key.reply)) + ", " + std::to_string(size) + " bytes";
    };
    Check(expected, [&] {
        return describe() + ": status " + std::to_string(reply.status) + ", code " +
               std::to_string(reply.result) + ", planned " + std::to_string(planned);
    });
    const std::string sent = BytesOf(key.Pack(), size);
    Check(code != 0 || std::equal(sent.begin(), sent.end(), reply.bytes.begin(), reply.bytes.end(),
                                  [](char one, uint8_t other) { return static_cast<uint8_t>(one) == other; }),
          [&] { return describe() + ": other bytes came than were sent"; });
    Sleep(random.Below(10));
}

}  // namespace vlm::soak
