#include "tools/vlmctl/installation/held_file.h"

#include "tools/vlmctl/console/command.h"
#include "util/text.h"

namespace vlm::ctl {

namespace {

CommandError Unreadable(const std::wstring& path, const std::string& why) {
    return CommandError(ToUtf8(path) + ": " + why);
}

DWORD WriteNewFile(const std::wstring& path, std::span<const std::uint8_t> bytes) {
    const File file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return GetLastError();
    DWORD written = 0;
    if (!WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
        !FlushFileBuffers(file.Get()))
        return GetLastError();
    return written == bytes.size() ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

}  // namespace

HeldFile::HeldFile(const std::wstring& path, size_t most) {
    // Whoever stands behind a path that is a pipe must not act as this user.
    constexpr DWORD kFlags = FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS;
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        throw Unreadable(path, "a folder, not a file");
    file_.Reset(
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, kFlags, nullptr));
    if (!file_) {
        const DWORD error = GetLastError();
        throw Unreadable(
            path, error == ERROR_SHARING_VIOLATION ? "another process is writing it" : ErrorText(error));
    }
    LARGE_INTEGER size{};
    if (GetFileType(file_.Get()) != FILE_TYPE_DISK || !GetFileSizeEx(file_.Get(), &size))
        throw Unreadable(path, "not a file");
    if (static_cast<ULONGLONG>(size.QuadPart) > most)
        throw Unreadable(path, std::to_string(size.QuadPart) + " bytes, too large for a monitor");
    bytes_.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    if (!ReadFile(file_.Get(), bytes_.data(), static_cast<DWORD>(bytes_.size()), &read, nullptr))
        throw Unreadable(path, ErrorText(GetLastError()));
    bytes_.resize(read);
}

DWORD WriteWholeFile(const std::wstring& path, std::span<const std::uint8_t> bytes) {
    const std::wstring beside = path + L".new-" + std::to_wstring(GetTickCount64());
    DWORD error = WriteNewFile(beside, bytes);
    if (error == ERROR_SUCCESS &&
        !MoveFileExW(beside.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        error = GetLastError();
        // We may write in this folder, so somebody uses the file.
        if (error == ERROR_ACCESS_DENIED) error = ERROR_SHARING_VIOLATION;
    }
    if (error != ERROR_SUCCESS) DeleteFileW(beside.c_str());
    return error;
}

}  // namespace vlm::ctl
