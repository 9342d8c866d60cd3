#include "printer/wsd/wsd_elements.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <set>

namespace vlm::printer {
namespace {

std::string Number(std::uint64_t value) {
    return std::to_string(value);
}

std::string TimeText(SystemTime time) {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

void Description(XmlElement in, const MachineState& machine) {
    in.Add("ColorSupported", "true");
    in.Add("DeviceId", "MFG:Velun;MDL:VP-4200C;CMD:PDF,PS,XPS;CLS:PRINTER;");
    in.Add("MultipleDocumentJobsSupported", "true");
    in.Add("PagesPerMinute", "42");
    in.Add("PagesPerMinuteColor", "38");
    in.Add("PrinterName", machine.name).Language("en-GB");
    in.Add("PrinterInfo", machine.info).Language("en-GB");
    in.Add("PrinterLocation", machine.location).Language("de-CH");
}

void StorageEntry(XmlElement in, const char* name, const char* type, std::uint64_t size, std::uint64_t free) {
    const XmlElement entry = in.Add("StorageEntry").Attribute("Name", name);
    entry.Add("Type", type);
    entry.Add("Size", Number(size));
    entry.Add("Free", Number(free));
}

void Configuration(XmlElement in, const MachineState& machine) {
    constexpr std::uint64_t kDiskFree = 250'371;  // MB
    const std::uint64_t used = machine.storedBytes >> 20;
    const XmlElement storage = in.Add("Storage");
    StorageEntry(storage, "Memory", "RAM", 4096, 3120);
    StorageEntry(storage, "Disk", "HardDisk", 262'144, used < kDiskFree ? kDiskFree - used : 0);

    const XmlElement consumables = in.Add("Consumables");
    for (const Cartridge& cartridge : machine.cartridges) {
        const XmlElement entry = consumables.Add("ConsumableEntry").Attribute("Name", cartridge.name);
        entry.Add("Type", "Toner");
        entry.Add("Color", cartridge.color);
        entry.Add("Level", Number(cartridge.Percent()));
        entry.Add("Model", cartridge.model);
    }
    const XmlElement inputs = in.Add("InputBins");
    for (const Bin& bin : machine.inputBins) {
        const XmlElement entry = inputs.Add("InputBinEntry").Attribute("Name", bin.name);
        entry.Add("FeedDirection", bin.feedDirection);
        entry.Add("MediaSize", bin.mediaSize);
        entry.Add("MediaColor", "white");
        entry.Add("MediaType", bin.mediaType);
        entry.Add("Capacity", Number(bin.capacity));
        entry.Add("Level", Number(bin.Percent()));
    }
    const XmlElement finishings = in.Add("Finishings");
    finishings.Add("Collation", "true");
    finishings.Add("JogOffset", "true");
    finishings.Add("PunchPattern", "TwoHole");
    finishings.Add("PunchPattern", "FourHole");
    const XmlElement stapler = finishings.Add("Stapler");
    for (const char* place : {"StapleTopLeft", "StapleTopRight", "StapleDualLeft"})
        stapler.Add("Location", place);
    const XmlElement outputs = in.Add("OutputBins");
    for (const Bin& bin : machine.outputBins) {
        const XmlElement entry = outputs.Add("OutputBinEntry").Attribute("Name", bin.name);
        entry.Add("Capacity", Number(bin.capacity));
        entry.Add("Level", Number(bin.Percent()));
    }
}

void Status(XmlElement in, const MachineState& machine) {
    in.Add("PrinterCurrentTime", TimeText(std::chrono::system_clock::now()));
    in.Add("PrinterState", machine.jobs > 0 ? "Processing" : "Idle");

    std::set<std::string> warnings;
    std::set<std::string> notices;
    for (const Condition& condition : machine.conditions)
        (condition.severity == "Warning" ? warnings : notices).insert(condition.name);
    in.Add("PrinterPrimaryStateReason", warnings.empty() ? "None" : "AttentionRequired");
    const XmlElement reasons = in.Add("PrinterStateReasons");
    if (!warnings.empty()) reasons.Add("PrinterStateReason", "AttentionRequired");
    if (warnings.empty() && notices.empty()) reasons.Add("PrinterStateReason", "None");
    for (const auto& names : {warnings, notices})
        for (const std::string& name : names)
            reasons.Add("PrinterStateReason", name);
    in.Add("QueuedJobCount", Number(machine.jobs));

    const XmlElement active = in.Add("ActiveConditions");
    for (const Condition& condition : machine.conditions) {
        const XmlElement entry = active.Add("DeviceCondition").Attribute("Id", Number(condition.id));
        entry.Add("Time", TimeText(condition.since));
        entry.Add("Name", condition.name);
        entry.Add("Component", condition.component);
        entry.Add("Severity", condition.severity);
    }
    const XmlElement past = in.Add("ConditionHistory").Add("ConditionHistoryEntry");
    past.Add("Time", "2026-11-20T16:30:18Z");
    past.Add("Name", "CoverOpen");
    past.Add("Component", "Cover");
    past.Add("Severity", "Warning");
    past.Add("ClearTime", "2026-11-20T16:31:02Z");
}

void Size(XmlElement in, const char* pixels) {
    in.Add("Width", pixels);
    in.Add("Height", pixels);
}

void Ticket(XmlElement in, const MachineState& /*machine*/) {
    const XmlElement description = in.Add("JobDescription");
    description.Add("JobName", "Untitled");
    description.Add("JobOriginatingUserName", "anonymous");
    const XmlElement processing = in.Add("JobProcessing");
    processing.Add("Copies", "1");
    processing.Add("Priority", "50");
    const XmlElement document = in.Add("DocumentProcessing");
    document.Add("MediaSizeName", "iso_a4_210x297mm");
    document.Add("MediaType", "stationery");
    const XmlElement numberUp = document.Add("NumberUp");
    numberUp.Add("PagesPerSheet", "1");
    numberUp.Add("Direction", "RightDown");
    document.Add("Orientation", "Portrait");
    Size(document.Add("Resolution"), "1200");
    document.Add("PrintQuality", "Normal");
    document.Add("Sides", "TwoSidedLongEdge");
}

void Range(XmlElement in, const char* least, const char* most) {
    in.Add("MinValue", least);
    in.Add("MaxValue", most);
}

void Choice(XmlElement in, std::initializer_list<const char*> values) {
    for (const char* value : values)
        in.Add("AllowedValue", value);
}

void Capabilities(XmlElement in, const MachineState& /*machine*/) {
    const XmlElement job = in.Add("JobValues");
    const XmlElement processing = job.Add("JobProcessing");
    Range(processing.Add("Copies"), "1", "9999");
    Range(processing.Add("Priority"), "1", "100");
    const XmlElement document = job.Add("DocumentProcessing");
    Choice(document.Add("MediaSizeName"),
           {"iso_a3_297x420mm", "iso_a4_210x297mm", "iso_a5_148x210mm", "iso_c5_162x229mm"});
    Choice(document.Add("MediaType"), {"stationery", "stationery-letterhead", "envelope"});
    Choice(document.Add("Orientation"), {"Portrait", "Landscape"});
    const XmlElement resolution = document.Add("Resolution");
    Size(resolution.Add("AllowedValue"), "600");
    Size(resolution.Add("AllowedValue"), "1200");
    Choice(document.Add("Sides"), {"OneSided", "TwoSidedLongEdge", "TwoSidedShortEdge"});
    Choice(in.Add("DocumentValues").Add("DocumentDescription").Add("Format"),
           {"application/pdf", "application/postscript", "application/vnd.ms-xpsdocument"});
}

void Extension(XmlElement in, const MachineState& machine) {
    in.Add("AveragePowerWatts", "14.5");
    in.Add("CertificateHash", "9f3Jc0kq0mY5i1uZ8oDqWw==");
    const XmlElement emulations = in.Add("Emulations");
    for (const char* language : {"PDF", "PostScript 3", "XPS"})
        emulations.Add("Emulation", language);
    in.Add("PagesPrinted", Number(machine.pages));
}

struct Entry {
    std::string_view uri;
    const char* name;
    void (*fill)(XmlElement in, const MachineState& machine);
};
constexpr std::array<Entry, 6> kElements{{
    {ns::kPrint, "PrinterDescription", Description},
    {ns::kPrint, "PrinterConfiguration", Configuration},
    {ns::kPrint, "PrinterStatus", Status},
    {ns::kPrint, "DefaultPrintTicket", Ticket},
    {ns::kPrint, "PrinterCapabilities", Capabilities},
    {ns::kVendor, "DeviceExtension", Extension},
}};

}  // namespace

bool AppendPrinterElement(XmlElement elementData, std::string_view uri, std::string_view name, xmlNs* vendor,
                          const MachineState& machine) {
    for (const Entry& entry : kElements) {
        if (entry.uri != uri || entry.name != name) continue;
        entry.fill(elementData.Add(entry.name, uri == ns::kVendor ? vendor : nullptr), machine);
        return true;
    }
    return false;
}

}  // namespace vlm::printer
