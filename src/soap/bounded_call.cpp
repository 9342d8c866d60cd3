#include "soap/bounded_call.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "soap/hresult.h"
#include "util/handles.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

// Calls left behind, per peer.
class LeftBehind {
 public:
    int Count(const std::wstring& peer) {
        const std::lock_guard lock(mutex_);
        const auto found = counts_.find(peer);
        return found == counts_.end() ? 0 : found->second;
    }
    void Add(const std::wstring& peer) {
        const std::lock_guard lock(mutex_);
        ++counts_[peer];
    }
    void Remove(const std::wstring& peer) {
        const std::lock_guard lock(mutex_);
        const auto found = counts_.find(peer);
        if (--found->second == 0) counts_.erase(found);
    }

 private:
    std::mutex mutex_;
    std::map<std::wstring, int> counts_;
};

// Never destroyed: a call may still end while the module's other statics are gone.
LeftBehind& AllLeftBehind() {
    static LeftBehind* const all = new LeftBehind;
    return *all;
}

enum class Phase { kRunning, kEnded, kLeftBehind };

struct Call {
    std::wstring peer;
    std::function<void()> work;
    KernelHandle ended;
    std::atomic<Phase> phase{Phase::kRunning};
};

void CALLBACK RunCall(PTP_CALLBACK_INSTANCE, void* argument) {
    const std::unique_ptr<std::shared_ptr<Call>> owner(static_cast<std::shared_ptr<Call>*>(argument));
    Call& call = **owner;
    GuardHresult([&] {
        call.work();
        return S_OK;
    });
    // What the work holds goes before its end is announced.
    call.work = nullptr;
    if (call.phase.exchange(Phase::kEnded) == Phase::kLeftBehind) AllLeftBehind().Remove(call.peer);
    SetEvent(call.ended.Get());
}

HMODULE ThisModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&RunCall), &module);
    return module;
}

// A thread of the process's pool: it is at hand where a new one takes as long as a whole exchange.
bool Submit(std::shared_ptr<Call>* owner) {
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackLibrary(&environment, ThisModule());
    SetThreadpoolCallbackRunsLong(&environment);
    const bool submitted = TrySubmitThreadpoolCallback(&RunCall, owner, &environment) != FALSE;
    DestroyThreadpoolEnvironment(&environment);
    return submitted;
}

}  // namespace

bool RunBounded(const std::wstring& peer, std::function<void()> work, DWORD milliseconds) {
    if (AllLeftBehind().Count(peer) >= kMostLeftBehind) {
        Trace(L"SOAP: earlier calls to %ls still hang, no new one is begun\r\n", Printable(peer).c_str());
        return false;
    }
    const auto call = std::make_shared<Call>();
    call->peer = peer;
    call->work = std::move(work);
    call->ended.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!call->ended) return false;
    auto owner = std::make_unique<std::shared_ptr<Call>>(call);
    if (!Submit(owner.get())) return false;
    static_cast<void>(owner.release());  // the callback's

    if (WaitForSingleObject(call->ended.Get(), milliseconds) == WAIT_OBJECT_0) return true;
    // Counted before the exchange, so that the callback never takes away what is not there yet.
    AllLeftBehind().Add(peer);
    if (call->phase.exchange(Phase::kLeftBehind) != Phase::kEnded) return false;
    AllLeftBehind().Remove(peer);
    return true;
}

}  // namespace vlm
