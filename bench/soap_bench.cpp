// What an exchange with a print service costs beyond its floor: the same bytes posted with bare WinINet, and
// the clean-up against a bare load of the same answer.
#include <functional>
#include <string>

#include "bench/bare_exchange.h"
#include "bench/bench.h"
#include "soap/printer_elements.h"
#include "tests/support/scripted_server.h"
#include "util/com.h"
#include "util/streams.h"
#include "util/trace.h"

namespace {

using namespace vlm;

constexpr wchar_t kQuery[] =
    L"<EnumQueryElement xmlns:wprt='http://schemas.microsoft.com/windows/2006/08/wdp/print'>"
    L"<Name>wprt:PrinterDescription</Name><Name>wprt:PrinterConfiguration</Name><Name>wprt:PrinterStatus</"
    L"Name>"
    L"<Name>wprt:DefaultPrintTicket</Name><Name>wprt:PrinterCapabilities</Name></EnumQueryElement>";

// An answer of the size and shape of a real one: five elements, 180 values, 11 kB, one line.
std::string MakeAnswer() {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><s:Envelope "
        "xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">"
        "<s:Body><p:GetPrinterElementsResponse "
        "xmlns:p=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\">"
        "<p:PrinterElements>";
    for (int element = 0; element < 5; ++element) {
        text += "<p:ElementData Name=\"p:Element" + std::to_string(element) + "\" Valid=\"true\">";
        for (int group = 0; group < 12; ++group) {
            text += "<p:InputBin Name=\"Tray" + std::to_string(group) + "\">";
            for (const char* leaf : {"MediaSize", "MediaType", "Capacity"}) {
                text += "<p:" + std::string(leaf) + ">iso_a4_210x297mm</p:" + leaf + ">";
            }
            text += "</p:InputBin>";
        }
        text += "</p:ElementData>";
    }
    return text + "</p:PrinterElements></p:GetPrinterElementsResponse></s:Body></s:Envelope>";
}

void BareLoad(IStream* answer) {
    ComPtr<IXMLDOMDocument2> document;
    CoCreateInstance(msxml::kDomDocument60, nullptr, CLSCTX_ALL, msxml::kIXMLDOMDocument2,
                     document.ReceiveVoid());
    document->put_async(VARIANT_FALSE);
    answer->Seek({}, STREAM_SEEK_SET, nullptr);
    VARIANT input{};
    input.vt = VT_UNKNOWN;
    input.punkVal = answer;
    VARIANT_BOOL loaded = VARIANT_FALSE;
    document->load(input, &loaded);
}

// Microseconds, of single runs in turns: what disturbs one disturbs the other.
bench::Pair Compare(const std::function<void()>& ours, const std::function<void()>& reference) {
    const auto once = [](const std::function<void()>& work) { return [&work](long) { work(); }; };
    const bench::Pair best = bench::BestOfBoth(300, 1, once(ours), once(reference));
    return {best.ours / 1000, best.reference / 1000};
}

void Run(bench::Rows* rows) {
    const std::string answer = MakeAnswer();
    const std::string request(1500, 'x');

    unsigned short closedPort = 0;
    bench::Measuring("fetches of elements");
    {
        // In this process, hence part of the time on both sides.
        const test::ScriptedServer server(test::Answer(test::Http("200 OK", answer)));
        closedPort = server.Port();
        const std::wstring url = server.Url();
        const auto fetch = [&] {
            std::string fetched;
            FetchPrinterElements(url.c_str(), kQuery, &fetched);
        };
        const bench::Pair times = Compare(fetch, [&] { bench::BareExchange(server.Port(), request); });
        rows->Add("fetch of 5 elements, 11 kB", "us", times.ours, times.reference,
                  "the same bytes with bare WinINet", "<= 2");
    }

    ComPtr<IStream> stream;
    MakeStream(answer, stream.Receive());
    const auto clean = [&] {
        std::string cleaned;
        CleanPrinterElements(answer, kQuery, &cleaned);
    };
    bench::Measuring("the clean-up of an answer");
    const bench::Pair cleaning = Compare(clean, [&] { BareLoad(stream.Get()); });
    rows->Add("clean-up of the answer", "us", cleaning.ours, cleaning.reference, "a bare DOM load of it",
              "<= 3");

    const std::wstring closed = L"127.0.0.1:" + std::to_wstring(closedPort);
    const auto refused = [&] {
        std::string none;
        FetchPrinterElements(closed.c_str(), kQuery, &none);
    };
    bench::Measuring("refused connections");
    const bench::Pair refusal = Compare(refused, [&] { bench::BareExchange(closedPort, request); });
    rows->State("refused connection, with the query read and the request written", "us", refusal.ours);
    rows->State("refused connection, bare", "us", refusal.reference);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    SetTraceStream([](const wchar_t*) {});
    const ComApartment com(COINIT_APARTMENTTHREADED);
    bench::Rows rows;
    Run(&rows);
    return rows.WriteTo(argv[1]);
}
