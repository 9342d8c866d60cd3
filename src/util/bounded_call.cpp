#include "util/bounded_call.h"

#include <atomic>
#include <memory>

#include "util/handles.h"
#include "util/locks.h"
#include "util/outcome.h"

namespace vlm {

namespace {

// Without a destructor, as the list below, because a call may end while the module's statics are being
// destroyed.
SlimLock lock;

struct Call {
    std::wstring peer;
    std::function<void()> work;
    KernelHandle ended;
    std::atomic<bool> cancelled{false};
    bool isOver VLM_GUARDED_BY(lock) = false;
    Call* next VLM_GUARDED_BY(lock) = nullptr;  // among the abandoned ones
};

// The abandoned calls: a list through themselves.
Call* abandoned VLM_GUARDED_BY(lock) = nullptr;

void End(Call& call) {
    const LockGuard exclusive(lock);
    call.isOver = true;
    for (Call** link = &abandoned; *link != nullptr; link = &(*link)->next) {
        if (*link != &call) continue;
        *link = call.next;
        return;
    }
}

// False when it is over.
bool Abandon(Call& call) {
    const LockGuard exclusive(lock);
    if (call.isOver) return false;
    call.next = abandoned;
    abandoned = &call;
    return true;
}

void CALLBACK RunCall(PTP_CALLBACK_INSTANCE, void* argument) {
    const std::unique_ptr<std::shared_ptr<Call>> owner(static_cast<std::shared_ptr<Call>*>(argument));
    Call& call = **owner;
    GuardHresult([&] {
        if (!call.cancelled.load()) call.work();
        return S_OK;
    });
    // What the work holds goes before its end is announced.
    call.work = nullptr;
    End(call);
    SetEvent(call.ended.Get());
}

// A thread of the process's pool: it is at hand where a new one takes as long as a whole exchange.
bool Submit(std::shared_ptr<Call>* owner) {
    HMODULE thisModule = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&RunCall), &thisModule);
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackLibrary(&environment, thisModule);
    SetThreadpoolCallbackRunsLong(&environment);
    const bool submitted = TrySubmitThreadpoolCallback(&RunCall, owner, &environment) != FALSE;
    DestroyThreadpoolEnvironment(&environment);
    return submitted;
}

}  // namespace

bool MayCall(const std::wstring& peer) {
    int toPeer = 0;
    int toAll = 0;
    const LockGuard exclusive(lock);
    for (const Call* call = abandoned; call != nullptr; call = call->next) {
        ++toAll;
        if (call->peer == peer) ++toPeer;
    }
    return toPeer < kMostAbandoned && toAll < kMostAbandonedInAll;
}

bool RunBounded(const std::wstring& peer, std::function<void()> work, DWORD milliseconds,
                const std::function<void()>& cancel, DWORD grace) {
    const auto call = std::make_shared<Call>();
    call->peer = peer;
    call->work = std::move(work);
    call->ended.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!call->ended) return false;
    auto owner = std::make_unique<std::shared_ptr<Call>>(call);
    if (!Submit(owner.get())) return false;
    static_cast<void>(owner.release());  // the callback's

    if (WaitForSingleObject(call->ended.Get(), milliseconds) == WAIT_OBJECT_0) return true;
    if (cancel) {
        call->cancelled.store(true);
        cancel();
        WaitForSingleObject(call->ended.Get(), grace);
    }
    const bool isOver = !Abandon(*call);
    return isOver && !cancel;
}

}  // namespace vlm
