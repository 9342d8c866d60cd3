// Any URL: what is accepted can be asked for, and written out it is the same URL again.
#include "soap/service_url.h"

#include "fuzz_input.h"
#include "tests/soap/utf8.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::wstring text = vlm::Wide({reinterpret_cast<const char*>(data), size});
    const std::vector<wchar_t> exact(text.begin(), text.end());  // so that a read behind it is seen
    vlm::ServiceUrl url{true, L"kept", 1, L"/kept"};
    if (!vlm::ParseServiceUrl({exact.data(), exact.size()}, L"/wsd/print/", &url)) {
        FUZZ_CHECK(url.secure && url.host == L"kept" && url.port == 1 && url.path == L"/kept");
        return 0;
    }
    FUZZ_CHECK(!url.host.empty() && url.host.size() <= 255);
    for (const wchar_t c : url.host)
        FUZZ_CHECK(c > 0x20 && (c < 0x7F || c >= 0xA0));
    const bool isAddress = url.host.front() == L'[';
    FUZZ_CHECK(isAddress == (url.host.back() == L']'));
    FUZZ_CHECK(url.host.find_first_of(isAddress ? L"@/?#\\" : L"@/?#\\:[]") == std::wstring::npos);
    FUZZ_CHECK(url.port != 0);
    FUZZ_CHECK(url.path.starts_with(L'/'));
    for (const wchar_t c : url.path)
        FUZZ_CHECK(c > 0x20 && c < 0x7F && c != L'#');

    std::wstring written = url.secure ? L"https://" : L"http://";
    written += url.host + L":" + std::to_wstring(url.port) + url.path;
    vlm::ServiceUrl again;
    const bool accepted = vlm::ParseServiceUrl(written, L"/", &again);
    // Defaults and a port may make it longer than a URL can be.
    FUZZ_CHECK(accepted || written.size() > 2083);
    if (!accepted) return 0;
    FUZZ_CHECK(again.secure == url.secure && again.host == url.host);
    FUZZ_CHECK(again.port == url.port && again.path == url.path);
    return 0;
}
