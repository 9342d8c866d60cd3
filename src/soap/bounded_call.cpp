#include "soap/bounded_call.h"

#include <atomic>
#include <memory>

#include "soap/hresult.h"
#include "util/handles.h"
#include "util/srw_lock.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

enum class Phase { kRunning, kEnded, kLeftBehind };

struct Call {
    std::wstring peer;
    std::function<void()> work;
    KernelHandle ended;
    std::atomic<Phase> phase{Phase::kRunning};
    Call* next = nullptr;  // among those left behind
};

// The calls left behind. A list through themselves and a lock without a destructor, because a call may end
// while the module's statics are being destroyed.
SRWLOCK leftBehindLock = SRWLOCK_INIT;
Call* leftBehind = nullptr;

int CountLeftBehind(const std::wstring& peer) {
    const ExclusiveScope exclusive(leftBehindLock);
    int count = 0;
    for (const Call* call = leftBehind; call != nullptr; call = call->next)
        if (call->peer == peer) ++count;
    return count;
}

void AddLeftBehind(Call& call) {
    const ExclusiveScope exclusive(leftBehindLock);
    call.next = leftBehind;
    leftBehind = &call;
}

void RemoveLeftBehind(const Call& call) {
    const ExclusiveScope exclusive(leftBehindLock);
    Call** link = &leftBehind;
    while (*link != &call)
        link = &(*link)->next;
    *link = call.next;
}

void CALLBACK RunCall(PTP_CALLBACK_INSTANCE, void* argument) {
    const std::unique_ptr<std::shared_ptr<Call>> owner(static_cast<std::shared_ptr<Call>*>(argument));
    Call& call = **owner;
    GuardHresult([&] {
        call.work();
        return S_OK;
    });
    // What the work holds goes before its end is announced.
    call.work = nullptr;
    if (call.phase.exchange(Phase::kEnded) == Phase::kLeftBehind) RemoveLeftBehind(call);
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
    if (CountLeftBehind(peer) >= kMostLeftBehind) {
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
    AddLeftBehind(*call);
    if (call->phase.exchange(Phase::kLeftBehind) != Phase::kEnded) return false;
    RemoveLeftBehind(*call);
    return true;
}

}  // namespace vlm
