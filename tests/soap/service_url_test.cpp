#include "soap/service_url.h"

#include <gtest/gtest.h>

namespace vlm {
namespace {

std::wstring Describe(std::wstring_view text) {
    ServiceUrl url;
    if (!ParseServiceUrl(text, L"/wsd/print/", &url)) return L"refused";
    return (url.secure ? L"tls " : L"plain ") + url.host + L" " + std::to_wstring(url.port) + L" " + url.path;
}

TEST(ServiceUrl, TakesWhatIsMissingFromTheDefaults) {
    const struct {
        const wchar_t* text;
        const wchar_t* expected;
    } rows[] = {
        {L"192.0.2.7", L"plain 192.0.2.7 80 /wsd/print/"},
        {L"printer.example:8018", L"plain printer.example 8018 /wsd/print/"},
        {L"printer.example:", L"plain printer.example 80 /wsd/print/"},
        {L"DRUCKER-B\u00dcRO", L"plain DRUCKER-B\u00dcRO 80 /wsd/print/"},
        {L"http://p", L"plain p 80 /wsd/print/"},
        {L"http://p/", L"plain p 80 /"},
        {L"HTTPS://p", L"tls p 443 /wsd/print/"},
        {L"https://p:8443/a/b?c=d&e=%20#f", L"tls p 8443 /a/b?c=d&e=%20"},
        {L"http://p?x=1", L"plain p 80 /?x=1"},
        {L"p/other?u=https://q", L"plain p 80 /other?u=https://q"},
        {L"ipp://p/x", L"plain p 80 /x"},
        {L"http://[fe80::1]:65535/x", L"plain [fe80::1] 65535 /x"},
        {L"fe80::1", L"plain [fe80::1] 80 /wsd/print/"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Describe(row.text), row.expected);
}

TEST(ServiceUrl, RefusesWhatCannotBeAskedForAndLeavesTheEndpoint) {
    const auto refuses = [](std::wstring_view text) {
        ServiceUrl url{true, L"kept", 1, L"/kept"};
        return !ParseServiceUrl(text, L"/", &url) && url.host == L"kept";
    };
    for (const wchar_t* text :
         {L"", L"http://", L"http:///x", L":80", L"http://p:0/", L"http://p:65536/", L"http://p:8o/",
          L"http://p:-1/", L"http://p:000080/", L"http://user:secret@p/", L"http://p/a b",
          L"http://p/a\r\nHost: q", L"p\u0085q", L"http://p/\u00e4", L"http://[::1", L"http://[]/",
          L"http://[::1]x/", L"http://a]b/"}) {
        EXPECT_TRUE(refuses(text)) << testing::PrintToString(text);
    }
    EXPECT_TRUE(refuses(L"http://" + std::wstring(256, L'h') + L"/"));
    EXPECT_TRUE(refuses(L"http://p/" + std::wstring(2083, L'x')));
}

}  // namespace
}  // namespace vlm
