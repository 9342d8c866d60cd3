#include "tools/vlmctl/console/files.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>

#include "tools/vlmctl/console/command.h"
#include "tools/vlmctl/console/console.h"
#include "util/text.h"

namespace vlm::ctl {

File OpenToRead(const std::wstring& path) {
    return File(CreateFileW(path.c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

size_t ReadPiece(HANDLE input, const std::string& name, std::string* bytes) {
    constexpr DWORD kPiece = 64 * 1024;
    const size_t before = bytes->size();
    bytes->resize(before + kPiece);
    DWORD count = 0;
    if (!ReadFile(input, bytes->data() + before, kPiece, &count, nullptr)) {
        const DWORD error = GetLastError();
        if (error != ERROR_BROKEN_PIPE && error != ERROR_HANDLE_EOF)
            throw CommandError("cannot read " + name + ": " + ErrorText(error));
        count = 0;
    }
    bytes->resize(before + count);
    return count;
}

std::string ReadInput(const std::string& file, size_t most) {
    File opened;
    if (file != "-") {
        opened = OpenToRead(FromUtf8(file));
        if (!opened) throw CommandError("cannot read " + Shown(file) + ": " + ErrorText(GetLastError()));
    }
    const HANDLE input = opened ? opened.Get() : GetStdHandle(STD_INPUT_HANDLE);
    std::string bytes;
    while (ReadPiece(input, InputName(file), &bytes) != 0) {
        if (bytes.size() > most)
            throw CommandError(fmt::format("{} is larger than {} bytes", InputName(file), most));
    }
    return bytes;
}

void WriteOutput(const std::string& file, const std::string& bytes) {
    std::ofstream stream(std::filesystem::path(FromUtf8(file)), std::ios::binary | std::ios::trunc);
    stream << bytes;
    stream.close();
    if (!stream) throw CommandError("cannot write " + Shown(file));
}

std::string DecodeUtf16(std::string_view bytes, bool networkOrder) {
    std::wstring text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto low = static_cast<unsigned char>(bytes[i + (networkOrder ? 1 : 0)]);
        const auto high = static_cast<unsigned char>(bytes[i + (networkOrder ? 0 : 1)]);
        text += static_cast<wchar_t>(low | high << 8);
    }
    return ToUtf8(text);
}

std::string DecodeText(const std::string& bytes) {
    const std::string_view text(bytes);
    if (text.starts_with("\xFF\xFE")) return DecodeUtf16(text.substr(2));
    if (text.starts_with("\xFE\xFF")) return DecodeUtf16(text.substr(2), true);
    return bytes.starts_with("\xEF\xBB\xBF") ? bytes.substr(3) : bytes;
}

std::string InputName(const std::string& file) {
    return file == "-" ? "standard input" : Shown(file);
}

}  // namespace vlm::ctl
