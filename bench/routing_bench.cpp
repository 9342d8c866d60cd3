// What a whole live query through the loaded monitor costs beyond the work that cannot be avoided: the same
// bytes over bare WinINet, bare loads of the same documents, and each leaf's filter.
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "bench/bare_exchange.h"
#include "bench/bench.h"
#include "bidi/extension_files.h"
#include "bidi/parameters.h"
#include "bidi/schema_tree.h"
#include "bidi/velunbidispl.h"
#include "monitor/module_explorer.h"
#include "soap/printer_elements.h"
#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"
#include "tests/support/bidi_lower_monitor.h"
#include "tests/support/resources.h"
#include "tests/support/scripted_server.h"
#include "util/namespaces.h"
#include "util/streams.h"
#include "util/trace.h"
#include "util/vlxml.h"

namespace {

using namespace vlm;

constexpr int kRounds = 60;
const wchar_t* const kExtensionFiles[] = {L"examples\\velun-base.xml", L"examples\\velun-finisher.xml"};

std::string ReadFile(const wchar_t* name) {
    const std::filesystem::path path(host::BesideProgram(name));
    std::string text(static_cast<size_t>(std::filesystem::file_size(path)), '\0');
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

// The parts of the floor.

ComPtr<IXMLDOMDocument2> NewDocument() {
    ComPtr<IXMLDOMDocument2> document;
    CoCreateInstance(msxml::kDomDocument60, nullptr, CLSCTX_ALL, msxml::kIXMLDOMDocument2,
                     document.ReceiveVoid());
    document->put_async(VARIANT_FALSE);
    return document;
}

void LoadFiles() {
    for (const wchar_t* name : kExtensionFiles) {
        const auto document = NewDocument();
        VARIANT_BOOL loaded = VARIANT_FALSE;
        document->load(_variant_t(host::BesideProgram(name).c_str()), &loaded);
        if (loaded != VARIANT_TRUE) std::exit(3);
    }
}

ComPtr<IXMLDOMDocument2> LoadAnswer(const std::string& text) {
    ComPtr<IStream> stream;
    MakeStream(text, stream.Receive());
    const auto document = NewDocument();
    VARIANT input{};
    input.vt = VT_UNKNOWN;
    input.punkVal = stream.Get();
    VARIANT_BOOL loaded = VARIANT_FALSE;
    document->load(input, &loaded);
    return document;
}

void RunFilters(IXMLDOMDocument2* answer, const std::vector<_bstr_t>& filters) {
    for (const _bstr_t& filter : filters) {
        ComPtr<IXMLDOMNode> node;
        answer->selectSingleNode(filter, node.Receive());
        if (!node) continue;
        BSTR text = nullptr;
        node->get_text(&text);
        SysFreeString(text);
    }
}

void CollectFilters(const SchemaElement& element, std::vector<_bstr_t>* filters) {
    if (element.IsLeaf() && element.filter) filters->emplace_back((L"//" + *element.filter).c_str());
    for (const SchemaElement& child : element.children)
        CollectFilters(child, filters);
}

// The filters that the leaves have once the answer has expanded the parameters.
std::vector<_bstr_t> FiltersOf(const wchar_t* fileList, const std::string& answer) {
    CXMLDoc document;
    document.Init();
    ComPtr<IStream> stream;
    MakeStream(answer, stream.Receive());
    document.LoadStream(stream.Get(), ns::kWsdPrint);
    document.SetSelectionNamespaces(
        {{L"pri", ns::kWsdPrint}, {L"vln", L"http://velun.example/wsd/print/2026"}});
    std::vector<_bstr_t> filters;
    QueryBudget budget;
    const AnswerSearch search(document, ShapeOf(answer), budget);
    CollectFilters(ExpandParameters(LoadExtensionFiles(fileList, budget), search), &filters);
    return filters;
}

double Microseconds(const std::function<void()>& work) {
    return bench::BestNanoseconds(kRounds, 1, [&](long) { work(); }) / 1000;
}

class Bench {
 public:
    explicit Bench(bench::Rows* rows) : rows_(*rows) {
        standin::Router().GuardBlocks(false);
        AddPrinter();
        lower_.bidiCode = ERROR_NOT_SUPPORTED;
        wchar_t port[] = L"IP_office";
        wchar_t printer[] = L"Office";
        if (!host_.Table().pfnOpenPortEx(host_.Manager(), &lower_, port, printer, &port_, &lower_.table))
            std::exit(3);
    }
    ~Bench() { host_.Table().pfnClosePort(port_); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    void Run() {
        const std::string answer = ReadFile(L"examples\\printer-answer.xml");
        // In this process, hence part of the time on both sides.
        test::ScriptedServer printer(test::Answer(test::Http("200 OK", answer)));
        lower_.address = L"127.0.0.1:" + std::to_wstring(printer.Port());
        const size_t values = Query(0);
        if (values < 50) std::exit(2);  // a wrong answer has no speed
        const std::string asked = printer.LastRequest();
        const std::string request = asked.substr(asked.find("\r\n\r\n") + 4);

        const auto cleaned = LoadAnswer(answer);
        cleaned->setProperty(_bstr_t(L"SelectionNamespaces"),
                             _variant_t(L"xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print' "
                                        L"xmlns:vln='http://velun.example/wsd/print/2026'"));
        _bstr_t files;
        BuildExtensionFileList(L"Office", files.GetAddress());
        const std::vector<_bstr_t> filters = FiltersOf(files, answer);
        if (filters.size() > values) std::exit(2);
        const auto floor = [&](int passes) {
            LoadFiles();
            const std::string body = bench::BareExchange(printer.Port(), request);
            if (body.size() != answer.size()) std::exit(2);
            LoadAnswer(body);
            for (int pass = 0; pass < passes; ++pass)
                RunFilters(cleaned.Get(), filters);
        };
        const auto whole = [&](long) {
            if (Query(0) != values) std::exit(2);
        };
        bench::Measuring("a live GetAll");
        const std::string name = "live GetAll of " + std::to_string(values) + " values";
        const bench::Pair live = bench::BestOfBoth(kRounds, 1, whole, [&](long) { floor(2); });
        rows_.Add(name, "us", live.ours / 1000, live.reference / 1000,
                  "bare WinINet, bare loads, each filter in two passes", "<= 1.2");
        rows_.State(name + ", the floor with each filter once", "us", Microseconds([&] { floor(1); }));
        Divide(printer, request, answer, files, cleaned.Get(), filters);
        Refused(request);
        Memory(answer);
    }

 private:
    // Also empties the stand-in's log of calls.
    void AddPrinter() {
        spooler_.Reset();
        std::wstring files = host::BesideProgram(L"examples\\velun.ini");
        files.append(2, L'\0');
        spooler_.Add({L"Office", L"IP_office", nullptr, 0, L"Velun", files.c_str()});
    }

    // One GetAll of the whole tree; how many entries have a value.
    size_t Query(DWORD expected) {
        wchar_t schema[] = L"\\";
        BIDI_REQUEST_CONTAINER request{};
        request.Version = 1;
        request.Count = 1;
        request.aData[0].pSchema = schema;
        BIDI_RESPONSE_CONTAINER* response = nullptr;
        const DWORD code = host_.Table().pfnSendRecvBidiDataFromPort(port_, PRINTER_ACCESS_USE, L"GetAll",
                                                                     &request, &response);
        if (code != expected) std::exit(2);
        if (response == nullptr) return 0;
        const size_t count = response->Count;
        RouterFreeBidiResponseContainer(response);
        return count;
    }

    // The same query's steps one after the other, over the libraries that the monitor is made of.
    void Divide(test::ScriptedServer& printer, const std::string& request, const std::string& answer,
                const _bstr_t& files, IXMLDOMDocument2* cleaned, const std::vector<_bstr_t>& filters) {
        wchar_t schema[] = L"\\";
        bench::Measuring("the steps of a live GetAll");
        BIDI_REQUEST_CONTAINER asked{};
        asked.Count = 1;
        asked.aData[0].pSchema = schema;
        rows_.State("of a live GetAll: find the extension files", "us", Microseconds([&] {
                        _bstr_t found;
                        BuildExtensionFileList(L"Office", found.GetAddress());
                    }));
        rows_.State("of a live GetAll: load and merge them", "us", Microseconds([&] {
                        CVelunBidiSpl engine;
                        engine.Init(L"bench", files);
                    }));
        rows_.State("the same, bare loads", "us", Microseconds(LoadFiles));
        CVelunBidiSpl engine;
        engine.Init(L"bench", files);
        _bstr_t query;
        rows_.State("of a live GetAll: which elements to ask for", "us",
                    Microseconds([&] { engine.EnumQueryElement(&asked, query.GetAddress()); }));
        std::string fetched;
        rows_.State("of a live GetAll: request and network", "us",
                    Microseconds([&] { FetchPrinterElements(printer.Url().c_str(), query, &fetched); }));
        rows_.State("the same, bare WinINet", "us",
                    Microseconds([&] { bench::BareExchange(printer.Port(), request); }));
        std::string clean;
        rows_.State("of a live GetAll: clean-up", "us",
                    Microseconds([&] { CleanPrinterElements(fetched, query, &clean); }));
        rows_.State("of a live GetAll: load and expansion", "us",
                    Microseconds([&] { engine.SetGetPrinterElementResponse(clean); }));
        rows_.State("the load alone, bare", "us", Microseconds([&] { LoadAnswer(answer); }));
        rows_.State("of a live GetAll: filters and answer", "us", Microseconds([&] {
                        BIDI_RESPONSE_CONTAINER* response = nullptr;
                        engine.SendRecvBidiDataFromPort(L"GetAll", &asked, &response);
                        RouterFreeBidiResponseContainer(response);
                    }));
        rows_.State("the filters alone", "us", Microseconds([&] { RunFilters(cleaned, filters); }));
    }

    void Refused(const std::string& request) {
        unsigned short closedPort = 0;
        {
            const test::ScriptedServer gone(test::Script{});
            closedPort = gone.Port();
        }
        lower_.address = L"127.0.0.1:" + std::to_wstring(closedPort);
        bench::Measuring("a printer that refuses the connection");
        const bench::Pair refused = bench::BestOfBoth(
            kRounds, 1, [&](long) { Query(ERROR_NOT_SUPPORTED); },
            [&](long) {
                LoadFiles();
                bench::BareExchange(closedPort, request);
            });
        rows_.Add("answer when the printer refuses the connection", "us", refused.ours / 1000,
                  refused.reference / 1000, "a bare refused connection and bare loads of the files", "<= 2");
    }

    // Wine's SAX reader keeps a block of each xml:lang, so this answer has none.
    void Memory(const std::string& answer) {
        const std::string plain = std::regex_replace(answer, std::regex(" xml:lang=\"[^\"]*\""), "");
        test::ScriptedServer printer(test::Answer(test::Http("200 OK", plain)));
        lower_.address = L"127.0.0.1:" + std::to_wstring(printer.Port());
        const auto blocks = [&](int queries) {
            for (int i = 0; i < queries; ++i)
                Query(0);
            AddPrinter();
            return static_cast<double>(test::CountResources().heapBlocks);
        };
        bench::Measuring("what 1,000 live queries leave");
        const double before = blocks(50);
        rows_.State("heap blocks that 1,000 live queries leave", "blocks", blocks(1'000) - before);
    }

    bench::Rows& rows_;
    host::MonitorHost host_{host::BesideProgram(L"vllm3mon.dll")};
    standin::Printers spooler_;
    test::BidiLowerMonitor lower_;
    HANDLE port_ = nullptr;
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    SetTraceStream([](const wchar_t*) {});
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    // In the spooler other code keeps the library loaded that the engine loads and frees.
    const Module crypt32(LoadLibraryW(L"crypt32.dll"));
    bench::Rows rows;
    Bench(&rows).Run();
    return rows.WriteTo(arguments[1]);
}
