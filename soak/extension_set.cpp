#include "soak/extension_set.h"

namespace vlm::soak {

namespace {

constexpr const wchar_t* kNames[] = {L"base.xml", L"extra.xml"};
constexpr int kFirstState = 1;

std::string Extension(const std::string& children) {
    return "<bidi:Definition xmlns:bidi='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>\n"
           "<Schema name='Soak' xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'>\n"
           "<Property name='Soak'>\n" +
           children + "</Property></Schema></bidi:Definition>\n";
}

std::string Text(size_t file, int state) {
    const std::string number = std::to_string(state);
    if (file == 1)
        return Extension("<Property name='Device'><Const name='Extra' type='BIDI_INT'>" + number +
                         "</Const></Property>\n");
    return Extension(
        "<Property name='Device'><Const name='Base' type='BIDI_INT'>" + number +
        "</Const>\n<Value name='Token' type='BIDI_STRING' query='w:PrinterDescription'"
        " filter='w:PrinterDescription/w:PrinterName'/></Property>\n"
        "<Property name='Bins'><Property name='$Bin$'>\n"
        "<Parameter parameter='Bin' query='w:PrinterConfiguration'"
        " filter='w:PrinterConfiguration/w:InputBins/w:InputBinEntry/@Name'/>\n"
        "<Value name='Level' type='BIDI_INT' query='w:PrinterConfiguration' filter=\"w:PrinterConfiguration/"
        "w:InputBins/w:InputBinEntry[@Name='$Bin$']/w:Level\"/></Property></Property>\n");
}

}  // namespace

ExtensionSet::ExtensionSet() {
    folder_.Write(
        L"soak.ini",
        "[BidiFiles]\r\nBidiWSDFile=base.xml\r\n[VelunDriverFiles]\r\nUIBidiWSDFile1=extra.xml\r\n");
    for (size_t file = 0; file < kFiles; ++file) {
        folder_.Write(kNames[file], Text(file, kFirstState));
        // Room for a day, so that the history is no growth.
        states_[file].reserve(1'000'000);
        states_[file].push_back(kFirstState);
    }
}

std::wstring ExtensionSet::DependentFiles() const {
    return folder_.Path(L"soak.ini") + std::wstring(2, L'\0');
}

bool ExtensionSet::Put(size_t file, int state) const {
    const std::wstring path = folder_.Path(kNames[file]);
    std::wstring next;
    if (state != kMissing) {
        std::string text = Text(file, state);
        // Refused before it is parsed. Wine's MSXML keeps the last parse error of all threads in one place,
        // and two threads that replace it at once free it twice: two queries of a file cut in half bring down
        // the process.
        if (state == kBroken) text.insert(0, "<!DOCTYPE VelunBidi>");
        next = folder_.Write(L"next.xml", text);
    }
    // A reader that has the file open keeps it as it is, for a moment.
    for (int tries = 0; tries < 100; ++tries) {
        const BOOL done = state == kMissing
                              ? DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND
                              : MoveFileExW(next.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
        if (done) return true;
        Sleep(1);
    }
    return false;
}

bool ExtensionSet::Change(size_t file, int state) {
    int before = 0;
    {
        const std::lock_guard guard(mutex_);
        before = states_[file].back();
        changing_[file] = true;
        states_[file].push_back(state);
    }
    const bool done = Put(file, state);
    const std::lock_guard guard(mutex_);
    if (!done) states_[file].push_back(before);
    changing_[file] = false;
    return done;
}

ExtensionSet::Moment ExtensionSet::Begin() const {
    const std::lock_guard guard(mutex_);
    Moment moment{};
    for (size_t file = 0; file < kFiles; ++file)
        moment[file] = states_[file].size() - (changing_[file] ? 2 : 1);
    return moment;
}

ExtensionSet::Seen ExtensionSet::End(const Moment& begin) const {
    const std::lock_guard guard(mutex_);
    Seen seen;
    for (size_t file = 0; file < kFiles; ++file)
        seen.states[file].insert(states_[file].begin() + static_cast<ptrdiff_t>(begin[file]),
                                 states_[file].end());
    return seen;
}

}  // namespace vlm::soak
