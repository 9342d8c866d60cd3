#include "monitor/printer_address.h"

#include <array>
#include <cstring>
#include <cwchar>
#include <string>

#include "monitor/lower_bidi.h"
#include "util/handles.h"
#include "util/trace_lines.h"

namespace vlm {

namespace {

// The TCP/IP port monitor's CONFIG_INFO_DATA_1 and PORT_DATA_1, which the toolchain's headers leave out.
constexpr DWORD kConfigInfoSize = 132;      // the version, 1, stands in its last four bytes
constexpr DWORD kPortDataSize = 964;        // in bytes
constexpr size_t kHostAddressOffset = 144;  // a zero-terminated text

constexpr wchar_t kServiceUrlSchema[] = L"\\Printer.Velun.OIP.Service.WSDPrintServices:WSDPrintServiceURL";
constexpr size_t kLongestUrl = 260;  // characters, terminator included

// The lower monitor's channel for questions about one port, open for the scope.
class Transceiver {
 public:
    explicit Transceiver(const LmPort& port) : port_(port), table_(port.lower.base) {
        if (port.use.closing.load() || table_.pfnXcvOpenPort == nullptr || table_.pfnXcvDataPort == nullptr ||
            table_.pfnXcvClosePort == nullptr)
            return;
        open_ = table_.pfnXcvOpenPort(port.lowerMonitor, port.portName, GENERIC_READ, &channel_) != FALSE;
    }
    ~Transceiver() {
        if (!open_ || port_.use.belowGone.load()) return;
        const LastErrorKeeper keeper;
        try {
            table_.pfnXcvClosePort(channel_);
        } catch (...) {
            TraceRefusal(port_.portName, L"an exception came up from below while a channel was closed",
                         ERROR_FUNCTION_FAILED);
        }
    }
    Transceiver(const Transceiver&) = delete;
    Transceiver& operator=(const Transceiver&) = delete;

    explicit operator bool() const { return open_; }
    DWORD Ask(const wchar_t* name, BYTE* input, DWORD inputSize, BYTE* output) const {
        if (port_.use.closing.load()) return ERROR_OPERATION_ABORTED;
        DWORD needed = 0;
        return table_.pfnXcvDataPort(channel_, name, input, inputSize, output, kPortDataSize, &needed);
    }

 private:
    const LmPort& port_;
    const MONITOR2& table_;
    HANDLE channel_ = nullptr;
    bool open_ = false;
};

}  // namespace

Outcome GetConfigInfo(const LmPort& port, PortConnectMode* mode, std::wstring* text) {
    if (mode == nullptr || text == nullptr) return {E_INVALIDARG, {}};
    *mode = PortConnectMode::kUnknown;
    text->clear();
    const Transceiver channel(port);
    if (!channel) return {E_FAIL, L"the lower monitor opens no channel to ask for the printer's address"};

    std::array<BYTE, kConfigInfoSize> question{};
    alignas(wchar_t) std::array<BYTE, kPortDataSize> answer{};
    const DWORD version = 1;
    std::memcpy(question.data() + kConfigInfoSize - sizeof version, &version, sizeof version);

    // Only a WSD port has such an identity.
    if (channel.Ask(L"PnPXID", nullptr, 0, answer.data()) == ERROR_SUCCESS) {
        *mode = PortConnectMode::kWsd;
        return {};
    }
    if (channel.Ask(L"GetConfigInfo", question.data(), kConfigInfoSize, answer.data()) != ERROR_SUCCESS)
        return {E_FAIL, L"the lower monitor does not tell the printer's address"};
    const auto* address = reinterpret_cast<const wchar_t*>(answer.data() + kHostAddressOffset);
    constexpr size_t kRoom = (kPortDataSize - kHostAddressOffset) / sizeof(wchar_t);
    const size_t length = wcsnlen(address, kRoom);
    if (length == kRoom) return {E_FAIL, L"the lower monitor's host address has no end"};
    text->assign(address, length);
    *mode = PortConnectMode::kTcp;
    return {};
}

Outcome GetPrinterAddress(const LmPort& port, std::wstring* address, const CBidiMem& memory) {
    PortConnectMode mode = PortConnectMode::kUnknown;
    Outcome probed = GetConfigInfo(port, &mode, address);
    if (FAILED(probed) || mode == PortConnectMode::kTcp) return probed;
    std::array<wchar_t, kLongestUrl> url{};
    const DWORD code = LowerText(port, kServiceUrlSchema, url.data(), url.size(), memory);
    if (code != ERROR_SUCCESS)
        return {E_FAIL,
                L"the lower monitor does not tell the print service's URL (" + std::to_wstring(code) + L")"};
    *address = url.data();
    return {};
}

}  // namespace vlm
