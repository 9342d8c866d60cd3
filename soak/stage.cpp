#include "soak/stage.h"
#include "util/text.h"

#include <malloc.h>

#include <chrono>

namespace vlm::soak {

namespace {

void Add(const standin::Printers& spooler, const Stage::Printer& printer) {
    spooler.Add({printer.name.c_str(), printer.port.c_str(), printer.share.c_str(),
                 PRINTER_ATTRIBUTE_ENABLE_BIDI, L"Velun",
                 printer.files.empty() ? nullptr : printer.files.c_str()});
}

}  // namespace

void Stage::AddPrinter(Printer printer) {
    const std::lock_guard guard(mutex_);
    Add(spooler, printers_.emplace_back(std::move(printer)));
}

void Stage::ExpectJobEvents(DWORD job, const std::string& events) {
    const std::lock_guard guard(mutex_);
    expectedEvents_[job] = events;
}

bool Stage::Continue() {
    std::unique_lock lock(mutex_);
    if (quiet_) {
        ++resting_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !quiet_; });
        --resting_;
    }
    return !ended_;
}

bool Stage::Quiet(size_t workers) {
    std::unique_lock lock(mutex_);
    quiet_ = true;
    // No limit: tools/soak.py ends a run that hangs, and the last heartbeat says what each worker did.
    while (resting_ != workers && !report.Violated())
        changed_.wait_for(lock, std::chrono::milliseconds(50));
    return !report.Violated();
}

void Stage::Resume(bool end) {
    const std::lock_guard guard(mutex_);
    quiet_ = false;
    ended_ = end;
    changed_.notify_all();
}

std::map<DWORD, std::string> Stage::LoggedJobEvents() const {
    const std::wstring job = L", job ";
    std::map<DWORD, std::string> events;
    for (const std::wstring& line : spooler.Log()) {
        if (!line.starts_with(L"SetJobW")) continue;
        const size_t number = line.find(job) + job.size();
        const size_t event = line.find(L", ", number) + 2;
        std::string& text = events[static_cast<DWORD>(std::stoul(line.substr(number)))];
        text += (text.empty() ? "" : " ") + ToUtf8(line.substr(event, line.rfind(L')') - event));
    }
    return events;
}

void Stage::CheckAtRest(uint64_t quietPoint) {
    const auto check = [&](bool good, const std::string& what) {
        if (!good) report.Violate("quiet point", quietPoint, what);
    };
    check(spooler.OpenHandles() == 0, std::to_string(spooler.OpenHandles()) + " printers are still open");
    for (const HANDLE heap : {GetProcessHeap(), reinterpret_cast<HANDLE>(_get_heap_handle())})
        check(HeapValidate(heap, 0, nullptr) != FALSE, "a heap is damaged");
    check(router.Counters().badFrees == 0, "a block of the router was freed that is none");
    const auto logged = LoggedJobEvents();
    const std::lock_guard guard(mutex_);
    for (const auto& [job, events] : expectedEvents_) {
        const auto found = logged.find(job);
        const std::string got = found == logged.end() ? "nothing" : found->second;
        check(got == events,
              "the spooler was told of job " + std::to_string(job) + ": " + got + ", not " + events);
    }
    check(logged.size() == expectedEvents_.size(), "the spooler was told of a job that did not print");
    expectedEvents_.clear();
    // Its log would grow without limit.
    spooler.Reset();
    for (const Printer& printer : printers_)
        Add(spooler, printer);
}

}  // namespace vlm::soak
