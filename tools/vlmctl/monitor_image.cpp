#include "tools/vlmctl/monitor_image.h"

#include <windows.h>

#include <fmt/format.h>

#include <vector>

#include "spooler/host/monitor_host.h"
#include "util/handles.h"

namespace vlm::ctl {

namespace {

std::string FileVersion(const std::wstring& path) {
    DWORD ignored = 0;
    std::vector<char> resource(GetFileVersionInfoSizeW(path.c_str(), &ignored));
    void* block = nullptr;
    UINT size = 0;
    if (resource.empty() ||
        !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()) ||
        !VerQueryValueW(resource.data(), L"\\", &block, &size) || size < sizeof(VS_FIXEDFILEINFO))
        return {};
    const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(block);
    return fmt::format("{}.{}.{}", HIWORD(fixed.dwFileVersionMS), LOWORD(fixed.dwFileVersionMS),
                       HIWORD(fixed.dwFileVersionLS));
}

}  // namespace

MonitorImage InspectMonitorImage(const std::wstring& path) {
    MonitorImage image;
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
        image.problem = host::ErrorText(GetLastError());
        return image;
    }
    // The DLL's own folder comes first for what it imports, as for the spooler.
    const Module module(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    if (!module) {
        image.problem = "cannot be loaded: " + host::ErrorText(GetLastError());
        return image;
    }
    image.version = FileVersion(path);
    image.exportsEntry = GetProcAddress(module.Get(), "InitializePrintMonitor2") != nullptr;
    return image;
}

const char* OwnVersion() {
    return VLM_VERSION;
}

}  // namespace vlm::ctl
