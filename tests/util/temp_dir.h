// A folder for one test's files, removed with them at the end of the scope.
#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace vlm::test {

class TempDir {
 public:
    TempDir() {
        static int count = 0;
        path_ = std::filesystem::temp_directory_path() /
                (L"vlm" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::wstring Path(std::wstring_view name) const { return (path_ / name).wstring(); }
    std::wstring Write(std::wstring_view name, std::string_view bytes) const {
        std::ofstream(path_ / name, std::ios::binary) << bytes;
        return Path(name);
    }

 private:
    std::filesystem::path path_;
};

}  // namespace vlm::test
