// What the Bidi engine costs a query: growth with the number of leaves, and the distance from the work of
// MSXML that cannot be avoided.
//
// One query is what the spooler's call does: read the extension file, bind a printer's answer of 40 KB,
// answer.
#include <windows.h>
// windows.h first.
#include <psapi.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench.h"
#include "bench/bidi_request.h"
#include "bench/processor_time.h"
#include "bidi/velunbidispl.h"
#include "tests/util/temp_dir.h"
#include "util/trace.h"

namespace {

using namespace vlm;

constexpr size_t kAnswerSize = 40'000;
constexpr size_t kAnswerElements = 400;

// Of one run of the work.
double Milliseconds(long repetitions, const std::function<void()>& work) {
    const double begin = bench::ProcessorMilliseconds();
    for (long i = 0; i < repetitions; ++i)
        work();
    return (bench::ProcessorMilliseconds() - begin) / static_cast<double>(repetitions);
}

// A tree of that many leaves, ten to a property, and the files and texts that a query over it takes.
struct Tree {
    explicit Tree(size_t leafCount) : leaves(leafCount) {
        std::string text =
            "<bidi:Definition xmlns:bidi='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>"
            "<Schema xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'><Property "
            "name='Printer'>";
        for (size_t i = 0; i < leaves; ++i) {
            const std::string filter = "w:Element[@id='" + std::to_string(i % kAnswerElements) + "']";
            if (i % 10 == 0) text += "<Property name='P" + std::to_string(i / 10) + "'>";
            text += "<Value name='L" + std::to_string(i) +
                    "' type='BIDI_STRING' query='w:Element' filter=\"" + filter + "\"/>";
            if (i % 10 == 9 || i + 1 == leaves) text += "</Property>";
            filters.push_back(L"//" + std::wstring(filter.begin(), filter.end()));
            paths.push_back(L"\\Printer.P" + std::to_wstring(i / 10) + L":L" + std::to_wstring(i));
        }
        path = folder.Write(L"tree.xml", text + "</Property></Schema></bidi:Definition>");
        list = L"<BidiExtensionFiles><BidiXml path=\"" + path + L"\" /></BidiExtensionFiles>";
    }

    // Small trees are measured several times over, to be long enough for the clock.
    long Repetitions() const { return leaves < 1'000 ? 10 : 1; }

    size_t leaves;
    test::TempDir folder;
    std::wstring path;
    std::wstring list;
    std::vector<std::wstring> filters;
    std::vector<std::wstring> paths;
};

const std::wstring& Answer() {
    static const std::wstring kAnswer = [] {
        std::wstring text =
            L"<e:Envelope xmlns:e='http://www.w3.org/2003/05/soap-envelope' "
            L"xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'><e:Body>";
        for (size_t i = 0; i < kAnswerElements; ++i) {
            const std::wstring element = L"<w:Element id='" + std::to_wstring(i) + L"'>";
            constexpr size_t kEach = kAnswerSize / kAnswerElements;
            text += element + std::wstring(kEach - element.size() - 12, L'x') + L"</w:Element>";
        }
        return text + L"</e:Body></e:Envelope>";
    }();
    return kAnswer;
}

// One whole query; the number of its entries that have a value.
size_t Query(const Tree& tree, const wchar_t* action, const std::vector<std::wstring>& paths, size_t count) {
    const bench::Request request = bench::RequestOf(paths, count);
    CVelunBidiSpl engine;
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    engine.Init(L"bench", tree.list.c_str());
    engine.SetGetPrinterElementResponseData(Answer().c_str());
    engine.SendRecvBidiDataFromPort(action, request.get(), &response);
    if (response == nullptr) return 0;
    size_t found = 0;
    for (DWORD i = 0; i < response->Count; ++i)
        found += response->aData[i].dwResult == 0 ? 1u : 0u;
    RouterFreeBidiResponseContainer(response);
    return found;
}

double QueryTime(const Tree& tree, const wchar_t* action, size_t count, size_t expected) {
    const std::vector<std::wstring> root{L"\\"};
    size_t found = 0;
    const double time = Milliseconds(tree.Repetitions(), [&] {
        found = Query(tree, action, action[3] != L'\0' ? root : tree.paths, count);
    });
    if (found != expected) std::exit(2);  // a wrong answer has no speed
    return time;
}

// What any engine has to have MSXML do for "GetAll" of the root: load both documents, and compile and run
// each leaf's filter, once or in each of two passes.
double FloorTime(const Tree& tree, int passes) {
    return Milliseconds(tree.Repetitions(), [&] {
        std::array<ComPtr<IXMLDOMDocument2>, 2> documents;
        for (auto& document : documents) {
            CoCreateInstance(msxml::kDomDocument60, nullptr, CLSCTX_ALL, msxml::kIXMLDOMDocument2,
                             document.ReceiveVoid());
            document->put_async(VARIANT_FALSE);
            document->put_validateOnParse(VARIANT_FALSE);
            document->put_resolveExternals(VARIANT_FALSE);
        }
        VARIANT_BOOL loaded = VARIANT_FALSE;
        documents[0]->load(_variant_t(tree.path.c_str()), &loaded);
        documents[1]->loadXML(_bstr_t(Answer().c_str()), &loaded);
        documents[1]->setProperty(
            _bstr_t(L"SelectionNamespaces"),
            _variant_t(L"xmlns:w='http://schemas.microsoft.com/windows/2006/08/wdp/print'"));
        for (int pass = 0; pass < passes; ++pass) {
            for (const std::wstring& filter : tree.filters) {
                ComPtr<IXMLDOMNode> node;
                documents[1]->selectSingleNode(_bstr_t(filter.c_str()), node.Receive());
                if (!node) std::exit(2);
            }
        }
    });
}

double MegabytesAtPeak() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<double>(counters.PeakWorkingSetSize) / (1024 * 1024);
}

struct Times {
    double getAll, getOne, get100, getEach, floor, floorOfTwo;
};

// The best of some rounds, in turns.
Times BestTimes(const Tree& tree, int rounds) {
    bench::Measuring("queries over " + std::to_string(tree.leaves) + " leaves");
    Times best{1e300, 1e300, 1e300, 1e300, 1e300, 1e300};
    for (int round = 0; round < rounds; ++round) {
        best.floor = std::min(best.floor, FloorTime(tree, 1));
        best.floorOfTwo = std::min(best.floorOfTwo, FloorTime(tree, 2));
        best.getAll = std::min(best.getAll, QueryTime(tree, L"GetAll", 1, tree.leaves));
        best.getOne = std::min(best.getOne, QueryTime(tree, L"Get", 1, 1));
        best.get100 = std::min(best.get100, QueryTime(tree, L"Get", 100, 100));
        best.getEach = std::min(best.getEach, QueryTime(tree, L"Get", tree.leaves, tree.leaves));
    }
    return best;
}

void Measure(bench::Rows& rows) {
    const Tree hundred(100);
    const Tree thousand(1'000);
    const Tree tenThousand(10'000);
    Query(hundred, L"Get", hundred.paths, 1);  // MSXML is loaded now

    // First the largest, with a response that is next to nothing, while the peak is still the engine's.
    const double before = MegabytesAtPeak();
    QueryTime(tenThousand, L"Get", 1, 1);
    rows.State("Bidi: peak memory of a query over 10,000 leaves", "MB", MegabytesAtPeak() - before);

    const Times small = BestTimes(hundred, 8);
    const Times medium = BestTimes(thousand, 6);
    const Times large = BestTimes(tenThousand, 2);

    const struct {
        const char* leaves;
        const char* previous;
        const Times& times;
        const Times* tenth;
    } kSizes[] = {{"100", nullptr, small, nullptr},
                  {"1,000", "100", medium, &small},
                  {"10,000", "1,000", large, &medium}};
    for (const auto& size : kSizes) {
        const std::string tree = std::string(" over ") + size.leaves + " leaves";
        rows.Add("Bidi: GetAll of the root" + tree, "ms CPU", size.times.getAll, size.times.floor,
                 "MSXML alone: both loads, each filter once", "<= 1.3");
        rows.Add("Bidi: GetAll of the root" + tree + ", against two passes", "ms CPU", size.times.getAll,
                 size.times.floorOfTwo, "MSXML alone: both loads, each filter twice", "<= 0.65");
        rows.Add("Bidi: Get of every leaf" + tree, "ms CPU", size.times.getEach, size.times.getOne,
                 "Get of one of them", "<= 2");
        rows.Add("Bidi: Get of 100 leaves" + tree, "ms CPU", size.times.get100, size.times.getOne,
                 "Get of one of them", "<= 2");
        if (size.tenth == nullptr) continue;
        const std::string reference = std::string("the same over ") + size.previous;
        rows.Add("Bidi: GetAll of the root" + tree, "ms CPU", size.times.getAll, size.tenth->getAll,
                 reference, "<= 12");
        rows.Add("Bidi: Get of every leaf" + tree, "ms CPU", size.times.getEach, size.tenth->getEach,
                 reference, "<= 12");
        rows.Add("Bidi: Get of one leaf" + tree, "ms CPU", size.times.getOne, size.tenth->getOne, reference,
                 "<= 12");
    }

    bench::Measuring("queries on two threads");
    const double together = Milliseconds(1, [&] {
        std::thread other([&] {
            const ComApartment apartment(COINIT_APARTMENTTHREADED);
            Query(thousand, L"Get", thousand.paths, 1);
        });
        Query(thousand, L"Get", thousand.paths, 1);
        other.join();
    });
    rows.State("Bidi: two queries over 1,000 leaves on two threads", "ms CPU", together);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) return 2;
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    SetTraceStream([](const wchar_t*) {});
    // In the spooler other code keeps the library loaded that the engine loads and frees.
    const Module crypt32(LoadLibraryW(L"crypt32.dll"));
    bench::Rows rows;
    Measure(rows);
    return rows.WriteTo(arguments[1]);
}
