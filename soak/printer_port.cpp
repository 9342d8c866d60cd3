#include "soak/printer_port.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "util/handles.h"
#include "util/text.h"

namespace vlm::soak {

namespace {

constexpr size_t kHeaderSize = 20;
constexpr char kDataBlockOperation = 0x31;

uint32_t Number(std::string_view bytes, size_t at) {
    uint32_t number = 0;
    for (size_t i = 0; i < 4; ++i)
        number = number << 8 | static_cast<uint8_t>(bytes[at + i]);
    return number;
}

ReplyKey KeyOf(std::string_view request) {
    const bool block = request[5] == kDataBlockOperation;
    return ReplyKey::Unpack(Number(request, block ? kHeaderSize : 10));
}

}  // namespace

std::string BytesOf(uint64_t key, size_t size) {
    std::string bytes(size, '\0');
    Random random(key, 0, 0);
    for (char& byte : bytes)
        byte = static_cast<char>(random.Next());
    return bytes;
}

PrinterPort::PrinterPort(Stage& stage, std::wstring portName) : name(std::move(portName)), stage_(stage) {
    table.pfnOpenPort = Open;
    table.pfnStartDocPort = Start;
    table.pfnWritePort = Write;
    table.pfnReadPort = Read;
    table.pfnEndDocPort = End;
    table.pfnClosePort = Close;
    table.pfnGetPrinterDataFromPort = PrinterData;
}

void PrinterPort::Expect(Job& job) {
    const std::lock_guard guard(mutex_);
    expected_[job.id] = &job;
}

void PrinterPort::Forget(const Job& job) {
    const std::lock_guard guard(mutex_);
    expected_.erase(job.id);
    if (current_ == &job) current_ = nullptr;
}

void PrinterPort::Abandon() {
    const std::lock_guard guard(mutex_);
    isOpen_ = false;
}

void PrinterPort::Violate(const std::string& what) const {
    stage_.report.Violate("port " + ToUtf8(name), 0, what);
}

Job* PrinterPort::CurrentJob(const char* operation) {
    if (current_ == nullptr) Violate(std::string(operation) + " below without a document");
    return current_;
}

// One call from above: `work` runs under the port's lock and returns the error to fail with. The last error
// is otherwise kept.
template <typename Work>
BOOL PrinterPort::Serve(HANDLE port, Work&& work) {
    DWORD error = ERROR_SUCCESS;
    {
        const LastErrorKeeper keeper;
        PrinterPort& self = Own(port);
        const std::lock_guard guard(self.mutex_);
        error = work(self);
    }
    if (error == ERROR_SUCCESS) return TRUE;
    SetLastError(error);
    return FALSE;
}

BOOL WINAPI PrinterPort::Open(HANDLE monitor, LPWSTR, HANDLE* port) {
    return Serve(monitor, [&](PrinterPort& self) -> DWORD {
        ++self.opens;
        if (self.openError != 0) return self.openError;
        if (self.isOpen_) self.Violate("opened twice below");
        self.isOpen_ = true;
        *port = monitor;
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI PrinterPort::Start(HANDLE port, LPWSTR, DWORD id, DWORD level, LPBYTE) {
    return Serve(port, [&](PrinterPort& self) -> DWORD {
        if (!self.isOpen_) self.Violate("StartDocPort below while it is closed");
        if (self.current_ != nullptr || self.exchange_) self.Violate("a document begins inside another one");
        // The remote procedures use level 2, the spooler's jobs level 1.
        if (level == 2) {
            self.exchange_ = true;
            self.request_.clear();
            return ERROR_SUCCESS;
        }
        const auto found = self.expected_.find(id);
        if (found == self.expected_.end()) {
            self.Violate("job " + std::to_string(id) + " is not of this port");
            return ERROR_INVALID_PARAMETER;
        }
        if (found->second->fails == Job::Fails::kStart) return found->second->error;
        self.current_ = found->second;
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI PrinterPort::Write(HANDLE port, LPBYTE bytes, DWORD size, LPDWORD count) {
    const std::string_view data(reinterpret_cast<const char*>(bytes), size);
    DWORD pause = 0;
    const BOOL result = Serve(port, [&](PrinterPort& self) -> DWORD {
        *count = 0;
        if (self.exchange_) {
            if (size < kHeaderSize + 4) {
                self.Violate("a VPCA request without a key");
                return ERROR_INVALID_DATA;
            }
            self.request_ = data;
            *count = size;
            return KeyOf(data).reply == Reply::kWriteFails ? kPortError : ERROR_SUCCESS;
        }
        Job* const job = self.CurrentJob("WritePort");
        if (job == nullptr) return ERROR_INVALID_HANDLE;
        pause = self.stage_.Planted("hang") ? INFINITE : job->pause;
        ++job->writes;
        if (job->fails == Job::Fails::kWrite) return job->error + (self.stage_.Planted("wrong-code") ? 1 : 0);
        job->arrived.append(data);
        *count = size;
        return ERROR_SUCCESS;
    });
    // Without the lock. Keeps the last error.
    if (pause != 0) Sleep(pause);
    return result;
}

std::string PrinterPort::Answer() const {
    const bool block = request_[5] == kDataBlockOperation;
    const uint32_t number = Number(request_, block ? kHeaderSize : 10);
    const ReplyKey key = ReplyKey::Unpack(number);
    if (key.reply == Reply::kSilence) return {};
    if (key.reply == Reply::kGarbage) return BytesOf(number, 40);
    std::string body;
    if (block) {
        body = request_.substr(kHeaderSize, 4) + BytesOf(number, key.size);
    } else {
        // The last id is the attribute; the answer is a list of one.
        const std::string id = request_.substr(request_.size() - 2);
        const size_t size = id == "\x09\x65" ? 28 : 8;
        body = "\x01" + id + static_cast<char>(size) + BytesOf(number, size);
    }
    if (stage_.Planted("wrong-reply")) body.back() = static_cast<char>(body.back() ^ 1);
    std::string frame = request_.substr(0, kHeaderSize);
    frame[3] = 5;
    frame[8] = static_cast<char>(body.size() >> 8);
    frame[9] = static_cast<char>(body.size());
    frame[19] = key.reply == Reply::kRefused ? 29 : 1;
    return frame + body;
}

BOOL WINAPI PrinterPort::Read(HANDLE port, LPBYTE bytes, DWORD size, LPDWORD count) {
    Reply reply = Reply::kGood;
    const BOOL result = Serve(port, [&](PrinterPort& self) -> DWORD {
        std::string answer;
        if (self.exchange_ && !self.request_.empty()) {
            reply = KeyOf(self.request_).reply;
            answer = self.Answer();
        } else if (const Job* const job = self.CurrentJob("ReadPort"); job != nullptr) {
            answer = BytesOf(job->id, size);
        }
        *count = static_cast<DWORD>(std::min<size_t>(answer.size(), size));
        std::copy_n(answer.begin(), *count, bytes);
        return reply == Reply::kReadFails ? kPortError : ERROR_SUCCESS;
    });
    if (reply == Reply::kSlow) Sleep(40);
    if (reply == Reply::kThrows) throw std::runtime_error("the lower monitor");
    return result;
}

BOOL WINAPI PrinterPort::End(HANDLE port) {
    return Serve(port, [](PrinterPort& self) -> DWORD {
        if (std::exchange(self.exchange_, false)) return ERROR_SUCCESS;
        Job* const job = self.CurrentJob("EndDocPort");
        if (job == nullptr) return ERROR_INVALID_HANDLE;
        self.current_ = nullptr;
        // The questions for completion come after the end.
        job->ended = true;
        if (self.stage_.Planted("drop-byte") && job->arrived.size() > 10'000) job->arrived.erase(5'000, 1);
        return job->fails == Job::Fails::kEnd ? job->error : ERROR_SUCCESS;
    });
}

BOOL WINAPI PrinterPort::Close(HANDLE port) {
    return Serve(port, [](PrinterPort& self) -> DWORD {
        if (!std::exchange(self.isOpen_, false)) self.Violate("closed twice below");
        if (self.current_ != nullptr || self.exchange_) self.Violate("closed below inside a document");
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI PrinterPort::PrinterData(HANDLE port, DWORD, LPWSTR, LPWSTR input, DWORD inputSize, LPWSTR output,
                                     DWORD outputSize, LPDWORD returned) {
    return Serve(port, [&](PrinterPort& self) -> DWORD {
        static constexpr std::string_view kComplete = "COMPLETE";
        *returned = 0;
        if (inputSize != 3 || outputSize < kComplete.size() || *reinterpret_cast<const char*>(input) != 8)
            self.Violate("another question than the one for completion");
        // Only an ended job is asked for, and a port whose jobs are asked for has one at a time.
        const auto found = std::find_if(self.expected_.begin(), self.expected_.end(),
                                        [](const auto& entry) { return entry.second->ended; });
        if (found == self.expected_.end()) return ERROR_INVALID_HANDLE;
        Job& job = *found->second;
        if (++job.questions == 1) return ERROR_NOT_READY;
        std::copy(kComplete.begin(), kComplete.end(), reinterpret_cast<char*>(output));
        *returned = static_cast<DWORD>(kComplete.size());
        return ERROR_SUCCESS;
    });
}

}  // namespace vlm::soak
