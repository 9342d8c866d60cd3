#include "soap/printer_elements_request.h"

#include <gtest/gtest.h>

#include "util/xml_text.h"

namespace vlm {
namespace {

std::string Escaped(std::wstring_view text) {
    std::string out;
    AppendEscapedAscii(&out, text);
    return out;
}

TEST(RequestText, WritesAnyTextAsAsciiThatReadsBackTheSame) {
    EXPECT_EQ(Escaped(L"plain ~"), "plain ~");
    EXPECT_EQ(Escaped(L"<a b='\"&\">"), "&lt;a b=&apos;&quot;&amp;&quot;&gt;");
    EXPECT_EQ(Escaped(L"\t\r\n\x7f"), "&#x000009;&#x00000D;&#x00000A;&#x00007F;");
    EXPECT_EQ(Escaped(L"\u00e4\u20ac"), "&#x0000E4;&#x0020AC;");
    const wchar_t pair[] = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(Escaped({pair, 2}), "&#x01F600;");
    EXPECT_EQ(Escaped({pair, 1}) + Escaped({pair + 1, 1}), "&#x00FFFD;&#x00FFFD;");
}

std::string Body(const PrinterElementsQuery& query) {
    const std::string text = BuildPrinterElementsRequest(query, L"u", L"m", L"f");
    const size_t start = text.find("<soap:Body>") + 11;
    return text.substr(start, text.find("</soap:Body>") - start);
}

TEST(RequestText, IsTheEnvelopeThatAPrintServiceExpects) {
    const PrinterElementsQuery query{{{L"wprt", L"http://schemas.microsoft.com/windows/2006/08/wdp/print"}},
                                     {L"wprt:PrinterStatus", L"wprt:PrinterDescription"}};
    EXPECT_EQ(
        BuildPrinterElementsRequest(query, L"http://p/?a&b", L"urn:uuid:1", L"urn:uuid:2"),
        "<?xml version='1.0' encoding='utf-8'?>"
        "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\""
        " xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
        " xmlns:pri=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\">"
        "<soap:Header><wsa:To>http://p/?a&amp;b</wsa:To>"
        "<wsa:Action>http://schemas.microsoft.com/windows/2006/08/wdp/print/GetPrinterElements</wsa:Action>"
        "<wsa:MessageID>urn:uuid:1</wsa:MessageID>"
        "<wsa:ReplyTo><wsa:Address>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous"
        "</wsa:Address></wsa:ReplyTo>"
        "<wsa:From><wsa:Address>urn:uuid:2</wsa:Address></wsa:From></soap:Header>"
        "<soap:Body><pri:GetPrinterElementsRequest>"
        "<pri:RequestedElements xmlns:wprt=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\">"
        "<pri:Name>wprt:PrinterStatus</pri:Name><pri:Name>wprt:PrinterDescription</pri:Name>"
        "</pri:RequestedElements></pri:GetPrinterElementsRequest></soap:Body></soap:Envelope>");
}

TEST(RequestText, WithoutNamesStillAsks) {
    EXPECT_EQ(Body({}),
              "<pri:GetPrinterElementsRequest><pri:RequestedElements></pri:RequestedElements>"
              "</pri:GetPrinterElementsRequest>");
}

// soap and wsa may be bound anew below the envelope; pri is what the requested names' own tags need.
TEST(RequestText, KeepsTheMeaningOfNamesWhosePrefixTheEnvelopeUses) {
    EXPECT_EQ(Body({{{L"pri", L"urn:v"}, {L"pri1", L"urn:w"}, {L"soap", L"urn:x"}},
                    {L"pri:A", L"pri1:B", L"soap:C", L"print", L"\u00c4"}}),
              "<pri:GetPrinterElementsRequest>"
              "<pri:RequestedElements xmlns:pri2=\"urn:v\" xmlns:pri1=\"urn:w\" xmlns:soap=\"urn:x\">"
              "<pri:Name>pri2:A</pri:Name><pri:Name>pri1:B</pri:Name><pri:Name>soap:C</pri:Name>"
              "<pri:Name>print</pri:Name><pri:Name>&#x0000C4;</pri:Name>"
              "</pri:RequestedElements></pri:GetPrinterElementsRequest>");
}

}  // namespace
}  // namespace vlm
