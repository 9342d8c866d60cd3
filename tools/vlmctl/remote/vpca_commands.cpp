// vlmctl vpca: frames of the printer's device-control protocol, taken apart and put together.
#include <memory>
#include <string>
#include <vector>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "tools/vlmctl/console/files.h"
#include "tools/vlmctl/console/table.h"
#include "tools/vlmctl/remote/hex_text.h"
#include "tools/vlmctl/remote/remote_commands.h"
#include "tools/vlmctl/remote/vpca_text.h"
#include "vpca/frame.h"
#include "vpca/tables.h"

namespace vlm::ctl {

namespace {

constexpr size_t kMostBytes = 1'048'576;

struct VpcaOptions {
    std::vector<std::string> hex;
    std::string file;
    std::string dataId;
    std::vector<std::string> values{"0", "0"};
    std::string sequence = "1";
    std::string word = "0";
    std::vector<std::string> longs;
    std::vector<std::string> shorts;
    bool json = false;
};

std::vector<std::uint8_t> ReadFrame(const VpcaOptions& options) {
    if (options.hex == std::vector<std::string>{"-"})
        return ParseHex(DecodeText(ReadInput("-", 4 * kMostBytes)));
    if (options.file.empty()) {
        std::string text;
        for (const std::string& piece : options.hex)
            text += piece + " ";
        return ParseHex(text);
    }
    const std::string bytes = ReadInput(options.file, kMostBytes);
    return {bytes.begin(), bytes.end()};
}

void Decode(const VpcaOptions& options) {
    if (options.hex.empty() == options.file.empty())
        throw CommandError("give either hex digits or --file", kWrongUsage);
    const FrameText text = DescribeFrame(ReadFrame(options));
    if (options.json) {
        Json fields = Json::array();
        for (const FrameField& field : text.fields)
            fields.push_back({{"offset", field.offset},
                              {"name", field.name.substr(field.name.find_first_not_of(' '))},
                              {"value", field.value}});
        PrintJson({{"fields", fields}, {"problem", OrNull(text.problem)}});
    } else {
        for (const FrameField& field : text.fields)
            PrintLine("{:6}  {:<12} {}", field.offset, field.name, field.value);
    }
    if (!text.problem.empty()) throw CommandError("bad frame: " + text.problem);
}

void Encode(const VpcaOptions& options, bool query) {
    vpca::RegisterTables();
    vpca::VpcaHeader header;
    header.flags = 4;
    header.sequence = static_cast<std::uint16_t>(ParseNumber(options.sequence, "sequence", 0xFFFF));
    header.value1 = ParseNumber(options.values.at(0), "value");
    header.value2 = ParseNumber(options.values.at(1), "value");
    vpca::RequestBody body;
    vpca::AttributeRequest request;
    std::vector<std::uint32_t> longs;
    std::vector<std::uint16_t> shorts;
    if (query) {
        header.operation = vpca::kReadDataBlock;
        body = vpca::DataBlockRequest{ParseNumber(options.dataId, "data id")};
    } else {
        longs = ParseNumbers<std::uint32_t>(options.longs, "32-bit id");
        shorts = ParseNumbers<std::uint16_t>(options.shorts, "16-bit id");
        header.operation = vpca::kReadAttribute;
        request.firstWord = static_cast<std::uint16_t>(ParseNumber(options.word, "word", 0xFFFF));
        request.longIdCount = static_cast<std::uint16_t>(longs.size());
        request.longIds = longs.data();
        request.shortIdCount = static_cast<std::uint16_t>(shorts.size());
        request.shortIds = shorts.data();
        body = &request;
    }
    vpca::FrameBuffer frame;
    const vpca::VpcaError error = vpca::EncodeFrame(&header, &body, &frame);
    if (error != vpca::VpcaError::kSuccess)
        throw CommandError(
            fmt::format("the request cannot be encoded (error {})", static_cast<unsigned>(error)));
    Print(HexText({frame.bytes, frame.size}));
}

}  // namespace

void AddVpcaCommands(CLI::App& app) {
    CLI::App* vpca =
        app.add_subcommand("vpca", "Decode and encode frames of the device-control protocol VPCA");
    vpca->require_subcommand(1);
    auto options = std::make_shared<VpcaOptions>();

    CLI::App* decode =
        vpca->add_subcommand("decode", "Show what a frame contains, and where and why it is invalid");
    decode->add_option("HEX", options->hex, "The frame in hex digits; - reads them from standard input");
    decode->add_option("--file", options->file, "File with the frame's bytes; - reads standard input");
    decode->add_flag("--json", options->json, "Print JSON instead of text");
    decode->callback([options] { Decode(*options); });

    CLI::App* encode = vpca->add_subcommand("encode", "Print the frame of a request");
    encode->require_subcommand(1);
    encode->add_option("--sequence", options->sequence, "Sequence number")->capture_default_str();
    encode->add_option("--values", options->values, "The two words of the header")->expected(2);
    encode->fallthrough();  // its options may stand behind the request's name, too
    CLI::App* query = encode->add_subcommand("query", "Read a data block");
    query->add_option("ID", options->dataId, "Data id")->required();
    query->callback([options] { Encode(*options, true); });
    CLI::App* command = encode->add_subcommand("command", "Read attributes");
    command->add_option("--word", options->word, "First word");
    command->add_option("--long", options->longs, "A 32-bit id; may be repeated");
    command->add_option("--short", options->shorts, "A 16-bit id; may be repeated");
    command->callback([options] { Encode(*options, false); });
}

}  // namespace vlm::ctl
