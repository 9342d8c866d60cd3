#include "soak/extension_set.h"

namespace vlm::soak {

namespace {

constexpr const wchar_t* kNames[] = {L"base.xml", L"extra.xml"};

std::string Extension(const std::string& children) {
    return "<bidi:Definition xmlns:bidi='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>\n"
           "<Schema name='Soak' xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'>\n"
           "<Property name='Soak'>\n" +
           children + "</Property></Schema></bidi:Definition>\n";
}

std::string Text(size_t file, int value) {
    const std::string number = std::to_string(value);
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
    for (size_t file = 0; file < kFiles; ++file)
        folder_.Write(kNames[file], Text(file, state_.numbers[file]));
}

std::wstring ExtensionSet::DependentFiles() const {
    return folder_.Path(L"soak.ini") + std::wstring(2, L'\0');
}

bool ExtensionSet::Put(size_t file, Kind kind, int number) const {
    const std::wstring path = folder_.Path(kNames[file]);
    std::string text = Text(file, number);
    // Refused before it is parsed. Wine's MSXML keeps the last parse error of all threads in one place, and
    // two threads that replace it at once free it twice: two queries of a file cut in half bring down the
    // process.
    if (kind == Kind::kBroken) text.insert(0, "<!DOCTYPE VelunBidi>");
    const std::wstring next = folder_.Write(L"next.xml", text);
    // A reader that has the file open keeps it as it is, for a moment.
    for (int tries = 0; tries < 100; ++tries) {
        const BOOL done = kind == Kind::kMissing
                              ? DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND
                              : MoveFileExW(next.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
        if (done) return true;
        Sleep(1);
    }
    return false;
}

bool ExtensionSet::Change(size_t file, Kind kind, int number) {
    {
        const std::lock_guard guard(mutex_);
        ++state_.changes;
    }
    const bool done = Put(file, kind, number);
    const std::lock_guard guard(mutex_);
    ++state_.changes;
    if (done) state_.kinds[file] = kind;
    if (done && kind == Kind::kGood) state_.numbers[file] = number;
    return done;
}

ExtensionSet::State ExtensionSet::Now() const {
    const std::lock_guard guard(mutex_);
    return state_;
}

}  // namespace vlm::soak
