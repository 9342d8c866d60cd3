// What the worst answers and extension files cost the process that meets them, against what SECURITY.md
// promises: ten seconds of processor time and 256 MB for one query, whatever it comes to.
//
// Each case runs in a process of its own, which is this program with the case's name behind the file for the
// rows: memory that one case took is not given back in time for the next.
#include <windows.h>
// windows.h first.
#include <psapi.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "bench/bidi_request.h"
#include "bench/processor_time.h"
#include "bidi/velunbidispl.h"
#include "soap/printer_elements.h"
#include "spooler/host/monitor_host.h"
#include "spooler/standin.h"
#include "tests/util/temp_dir.h"
#include "util/com.h"
#include "util/trace.h"

namespace {

using namespace vlm;

constexpr double kPromisedSeconds = 10;
constexpr double kPromisedMegabytes = 256;

std::string Times(size_t count, const std::string& text) {
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

// The same with the number of each in place of "#".
std::string Numbered(size_t count, const std::string& text) {
    std::string all;
    for (size_t i = 0; i < count; ++i) {
        for (const char c : text)
            c == '#' ? all += std::to_string(i) : all += c;
    }
    return all;
}

std::string Nested(size_t count, const std::string& open, const std::string& inside,
                   const std::string& close) {
    return Times(count, open) + inside + Times(count, close);
}

std::string Envelope(const std::string& elements, const std::string& declarations = "") {
    return "<s:Envelope xmlns:s='http://www.w3.org/2003/05/soap-envelope' "
           "xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print' " +
           declarations + "><s:Body><pri:GetPrinterElementsResponse><pri:PrinterElements><pri:ElementData>" +
           elements +
           "</pri:ElementData></pri:PrinterElements></pri:GetPrinterElementsResponse></s:Body></s:Envelope>";
}

std::string Extension(const std::string& schemaChildren) {
    return "<d:Definition xmlns:d='http://schemas.microsoft.com/windows/2005/03/printing/bidi'>"
           "<Schema xmlns:pri='http://schemas.microsoft.com/windows/2006/08/wdp/print'>" +
           schemaChildren + "</Schema></d:Definition>";
}

std::string Leaf(const std::string& filter) {
    return "<Value name='L#' query='pri:A' filter=\"" + filter + "\"/>";
}

// A parameter that each node of the filter makes a level of, around what stands in it.
std::string Level(const std::string& parameter, const std::string& filter, const std::string& content) {
    return "<Parameter name='$" + parameter + "$' parameter='" + parameter + "' query='pri:A' filter=\"" +
           filter + "\">" + content + "</Parameter>";
}

struct Query {
    std::vector<std::string> extensions;  // texts; none means the shipped example files
    std::string answer;
    size_t entries = 1;  // of the request, each for the whole tree
};

// With the shipped example files.
Query Ask(std::string answer, size_t entries = 1) {
    return {{}, std::move(answer), entries};
}

std::string Consumables(size_t count) {
    return "<pri:PrinterConfiguration><pri:Consumables>" +
           Numbered(count,
                    "<pri:ConsumableEntry><pri:Color>C#</pri:Color><pri:Level>7</pri:Level>"
                    "</pri:ConsumableEntry>") +
           "</pri:Consumables></pri:PrinterConfiguration>";
}

// A large device: sixty consumables and trays, two hundred conditions, three languages each.
std::string LargeDevice() {
    const auto texts = [](const std::string& name) {
        return "<pri:" + name + " xml:lang='en'>English text</pri:" + name + "><pri:" + name +
               " xml:lang='de'>Deutscher Text</pri:" + name + "><pri:" + name +
               " xml:lang='fr'>Texte fran\xC3\xA7"
               "ais</pri:" +
               name + ">";
    };
    return "<pri:PrinterConfiguration><pri:Consumables>" +
           Numbered(60,
                    "<pri:ConsumableEntry Name='C#'><pri:Type>Toner</pri:Type><pri:Color>C#</pri:Color>"
                    "<pri:Level>7</pri:Level>" +
                        texts("Model") + "</pri:ConsumableEntry>") +
           "</pri:Consumables><pri:InputBins>" +
           Numbered(60,
                    "<pri:InputBinEntry Name='B#'><pri:MediaSize>iso_a4</pri:MediaSize>"
                    "<pri:Capacity>500</pri:Capacity><pri:Level>100</pri:Level>" +
                        texts("MediaType") + "</pri:InputBinEntry>") +
           "</pri:InputBins></pri:PrinterConfiguration><pri:PrinterStatus><pri:ActiveConditions>" +
           Numbered(200, "<pri:DeviceCondition Id='#'><pri:Time>2026-11-22T05:00:00Z</pri:Time>" +
                             texts("Name") +
                             "<pri:Component>Part#</pri:Component><pri:Severity>Warning</pri:Severity>"
                             "</pri:DeviceCondition>") +
           "</pri:ActiveConditions></pri:PrinterStatus>";
}

struct Case {
    const char* name;
    std::function<Query()> query;
};

const std::vector<Case>& Cases() {
    static const std::string kMegabyte(1'000'000, 'x');
    static const std::string kBoundTwice = Level(
        "A", "pri:N", Level("B", "pri:N", "<Value name='L' query='pri:A' filter=\"pri:N[.='$A$$B$']\"/>"));
    static const std::vector<Case> kCases = {
        {"a large real device", [] { return Ask(Envelope(LargeDevice())); }},
        {"nested elements share 1 MB of text, bound in two levels, shipped files",
         [] {
             return Query{{},
                          Envelope(Nested(22,
                                          "<pri:PrinterStatus><pri:ActiveConditions><pri:DeviceCondition "
                                          "Id='1'><pri:Component>",
                                          kMegabyte,
                                          "</pri:Component></pri:DeviceCondition></pri:ActiveConditions>"
                                          "</pri:PrinterStatus>"))};
         }},
        {"the same, bound by two further files",
         [] {
             return Query{
                 {Extension(kBoundTwice), Extension("<Property name='P'>" + kBoundTwice + "</Property>")},
                 Envelope(Nested(22, "<pri:N>", kMegabyte, "</pri:N>"))};
         }},
        {"nested elements share 0.2 MB of text",
         [] {
             return Query{{Extension(kBoundTwice)},
                          Envelope(Nested(80, "<pri:N>", kMegabyte.substr(0, 200'000), "</pri:N>"))};
         }},
        {"4,000 consumables, shipped files", [] { return Ask(Envelope(Consumables(4'000))); }},
        {"3,000 conditions compared with all before them, shipped files",
         [] {
             return Query{{},
                          Envelope("<pri:PrinterStatus><pri:ActiveConditions>" +
                                   Numbered(3'000,
                                            "<pri:DeviceCondition Id='#'><pri:Component>P#</pri:Component>"
                                            "</pri:DeviceCondition>") +
                                   "</pri:ActiveConditions></pri:PrinterStatus>")};
         }},
        {"a printer that writes the XPath",
         [] {
             return Query{{Extension(Level("A", "pri:X", Leaf("pri:A[$A$]")))},
                          Envelope("<pri:X>count(//*[count(//*[count(//*)>1])>1])>1</pri:X>" +
                                   Times(4'000, "<pri:A/>"))};
         }},
        {"filters that nest searches",
         [] {
             return Query{{Extension(Numbered(50, Leaf("pri:A[count(//*[count(//*)>#])>1]")))},
                          Envelope(Times(19'000, "<pri:A/>"))};
         }},
        {"filters that sort out doubles",
         [] {
             return Query{{Extension(Numbered(50, Leaf("pri:A/following::*/preceding::*")))},
                          Envelope(Times(19'000, "<pri:A/>"))};
         }},
        {"searches just below the bound, again and again",
         [] {
             return Query{{Extension(Numbered(300, Leaf("pri:A[preceding-sibling::pri:B[.='#']]")))},
                          Envelope(Times(1'200, "<pri:A/>") + Times(1'200, "<pri:B/>"))};
         }},
        {"a long text in every comparison",
         [] {
             return Query{{Extension(Numbered(500, Leaf("*[contains(., 'xxxxxxxxxxxxxxxxxxxy')]")))},
                          Envelope(Nested(85, "<pri:N>", kMegabyte, "</pri:N>"))};
         }},
        {"a filter that puts a long text together",
         [] {
             return Query{{Extension(Leaf("*[concat(" + Times(2'000, ".,") + ".)='']"))},
                          Envelope("<pri:N>" + kMegabyte + "</pri:N>")};
         }},
        {"a List of everything, again and again",
         [] {
             return Query{{Extension(Numbered(500, "<List name='L#' query='pri:A' filter='*'/>"))},
                          Envelope(Nested(80, "<pri:N>", kMegabyte, "</pri:N>"))};
         }},
        {"three levels of parameters over 1,000 elements",
         [] {
             return Query{
                 {Extension(Level("A", "pri:N", Level("B", "pri:N", Level("C", "pri:N", Leaf("pri:N")))))},
                 Envelope(Numbered(1'000, "<pri:N>#</pri:N>"))};
         }},
        {"10,000 elements below each of 2,000 instances",
         [] {
             return Query{{Extension(Level("A", "pri:N", Numbered(10'000, Leaf("pri:N"))))},
                          Envelope(Numbered(2'000, "<pri:N>#</pri:N>"))};
         }},
        {"a large extension file over a large answer",
         [] {
             return Query{{Extension(Numbered(60'000, Leaf("pri:N[@a='#']/pri:B")))},
                          Envelope(Numbered(9'000, "<pri:N a='#'/>"))};
         }},
        {"100,000 elements in files, each named at length",
         [] {
             return Query{{Extension(Numbered(49'000, Leaf("pri:A" + std::string(40, 'a')))),
                           Extension("<Property name='P'>" +
                                     Numbered(49'000, Leaf("pri:A" + std::string(40, 'a'))) + "</Property>")},
                          Envelope("<pri:A/>")};
         }},
        {"390,000 elements in a file that says at its end what it is",
         [] {
             return Query{
                 {"<d><Schema>" + Times(390'000, "<a/>") +
                  "<a xmlns:b='http://schemas.microsoft.com/windows/2005/03/printing/bidi'/></Schema></d>"},
                 Envelope("<pri:A/>")};
         }},
        {"10,000 parameters bound by one level",
         [] {
             return Query{
                 {Extension("<Property name='$A$'>" +
                            Times(10'000, "<Parameter parameter='A' filter='pri:A'/>") + "</Property>")},
                 Envelope("<pri:A>1</pri:A>")};
         }},
        {"files without end",
         [] {
             Query query{{}, Envelope("<pri:A/>")};
             for (int i = 0; i < 40; ++i)
                 query.extensions.push_back(Extension("<!--" + std::string(7'000'000, 'x') + "-->"));
             return query;
         }},
        {"paths of long names in deep levels",
         [] {
             return Query{{Extension(Nested(90, "<Property name='" + std::string(60'000, 'n') + "'>",
                                            Numbered(1'000, "<Const name='C#'>c</Const>"), "</Property>"))},
                          Envelope("<pri:A/>")};
         }},
        {"the whole tree asked for 200,000 times", [] { return Ask(Envelope(Consumables(500)), 200'000); }},
        {"40,000 namespace declarations in scope",
         [] {
             return Query{{},
                          Envelope("<pri:N>" + Times(28'000, "<pri:a/>") + "</pri:N>",
                                   Numbered(40'000, "xmlns:n#='u#' "))};
         }},
        {"namespace declarations at every level",
         [] {
             std::string open;
             for (int i = 0; i < 90; ++i)
                 open += "<pri:N xmlns:n" + std::to_string(i) + "='u'>";
             return Query{{}, Envelope(open + Times(19'000, "<pri:a/>") + Times(90, "</pri:N>"))};
         }},
        {"one namespace under a prefix of 16,000 letters",
         [] {
             const std::string prefix(16'000, 'p');
             return Query{{},
                          Envelope("<N xmlns='urn:long'>" + Times(19'000, "<a/>") + "</N>",
                                   "xmlns:" + prefix + "='urn:long'")};
         }},
        {"attributes without end",
         [] { return Ask(Envelope(Times(6, "<pri:N " + Numbered(1'500, "a#='' ") + "/>"))); }},
        {"2 MB of character references",
         [] { return Ask(Envelope("<pri:N>" + Times(400'000, "&amp;") + "</pri:N>")); }},
        {"2 MB of empty comments", [] { return Ask(Envelope(Times(290'000, "<!---->"))); }},
        {"2 MB in one tag", [] { return Ask(Envelope("<pri:N a='" + std::string(2'000'000, 'x') + "'/>")); }},
    };
    return kCases;
}

// What the monitor does with the query once the answer is there. The number of entries answered, or -1.
long Run(const wchar_t* list, const Query& query) {
    const std::vector<std::wstring> roots(query.entries, L"\\");
    const bench::Request request = bench::RequestOf(roots, roots.size());
    CVelunBidiSpl engine;
    _bstr_t names;
    std::string document;
    HRESULT hr = engine.Init(L"bench", list);
    if (SUCCEEDED(hr)) hr = engine.EnumQueryElement(request.get(), names.GetAddress());
    if (SUCCEEDED(hr)) hr = CleanPrinterElements(query.answer, names, &document);
    if (SUCCEEDED(hr)) hr = engine.SetGetPrinterElementResponse(document);
    BIDI_RESPONSE_CONTAINER* response = nullptr;
    if (SUCCEEDED(hr)) hr = engine.SendRecvBidiDataFromPort(L"GetAll", request.get(), &response);
    if (response == nullptr) return -1;
    const auto count = static_cast<long>(response->Count);
    RouterFreeBidiResponseContainer(response);
    return count;
}

PROCESS_MEMORY_COUNTERS Memory() {
    PROCESS_MEMORY_COUNTERS counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters;
}

std::wstring ListOf(const std::vector<std::string>& texts, const test::TempDir& folder) {
    std::wstring list = L"<BidiExtensionFiles>";
    const auto add = [&](const std::wstring& path) { list += L"<BidiXml path=\"" + path + L"\" />"; };
    for (size_t i = 0; i < texts.size(); ++i)
        add(folder.Write((L"file" + std::to_wstring(i) + L".xml").c_str(), texts[i]));
    if (texts.empty()) {
        for (const wchar_t* name : {L"examples\\velun-base.xml", L"examples\\velun-finisher.xml"})
            add(host::BesideProgram(name));
    }
    return list + L"</BidiExtensionFiles>";
}

// Runs one case in this process and writes seconds, megabytes and entries.
int RunCase(const char* output, const Case& one) {
    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    SetTraceStream([](const wchar_t* line) { std::fprintf(stderr, "  %ls", line); });
    // As in the spooler, where other code keeps the library loaded and router blocks are not counted.
    const Module crypt32(LoadLibraryW(L"crypt32.dll"));
    standin::Router().GuardBlocks(false);
    const test::TempDir folder;
    const std::wstring shipped = ListOf({}, folder);
    // An idle process is one that has answered a query before.
    if (Run(shipped.c_str(), {{}, Envelope(Consumables(4))}) < 0) return 2;
    const Query query = one.query();
    const std::wstring list = ListOf(query.extensions, folder);
    const double idle = static_cast<double>(Memory().WorkingSetSize);
    const double begin = bench::ProcessorMilliseconds() / 1000;
    const long entries = Run(list.c_str(), query);
    const double seconds = bench::ProcessorMilliseconds() / 1000 - begin;
    const double megabytes = (static_cast<double>(Memory().PeakWorkingSetSize) - idle) / (1024 * 1024);
    std::FILE* file = std::fopen(output, "wb");
    if (file == nullptr) return 3;
    std::fprintf(file, "%.3f %.1f %ld\n", seconds, megabytes > 0 ? megabytes : 0, entries);
    return std::fclose(file);
}

// The same in a process of its own.
void Measure(const Case& one, size_t number, bench::Rows* rows) {
    const test::TempDir folder;
    const std::wstring output = folder.Write(L"figures", "");
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring line = L"\"" + std::wstring(program) + L"\" \"" + output + L"\" " + std::to_wstring(number);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process))
        std::exit(3);
    CloseHandle(process.hThread);
    const DWORD ended = WaitForSingleObject(process.hProcess, 120'000);
    TerminateProcess(process.hProcess, 4);
    CloseHandle(process.hProcess);
    double seconds = 0;
    double megabytes = 0;
    long entries = 0;
    std::FILE* file = _wfopen(output.c_str(), L"rb");
    const bool read =
        file != nullptr && std::fscanf(file, "%lf %lf %ld", &seconds, &megabytes, &entries) == 3;
    if (file != nullptr) std::fclose(file);
    // Whatever it was, it kept no promise.
    if (ended != WAIT_OBJECT_0 || !read) seconds = 120;
    const std::string name = std::string("hostile: ") + one.name;
    rows->Add(name, "s CPU", seconds, kPromisedSeconds, "what is promised", "<= 1");
    rows->Add(name, "MB", megabytes, kPromisedMegabytes, "what is promised", "<= 1");
    std::fprintf(stderr, "%-70s %7.2f s %7.1f MB  %ld entries\n", one.name, seconds, megabytes, entries);
}

}  // namespace

int main(int count, char** arguments) {
    if (count == 3) return RunCase(arguments[1], Cases().at(static_cast<size_t>(std::atoi(arguments[2]))));
    if (count != 2) return 2;
    bench::Rows rows;
    for (size_t i = 0; i < Cases().size(); ++i)
        Measure(Cases()[i], i, &rows);
    return rows.WriteTo(arguments[1]);
}
