#include "soap/bounded_call.h"

#include <atomic>
#include <memory>

#include "soap/hresult.h"
#include "util/handles.h"
#include "util/vlutil.h"

namespace vlm {

namespace {

std::atomic<long> leftBehind{0};

enum class Phase { kRunning, kEnded, kLeftBehind };

struct Call {
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
    if (call.phase.exchange(Phase::kEnded) == Phase::kLeftBehind) --leftBehind;
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

bool RunBounded(std::function<void()> work, DWORD milliseconds) {
    if (leftBehind.load() >= kMostLeftBehind) {
        Trace(L"SOAP: %ld calls to printers hang, no new one is begun\r\n", leftBehind.load());
        return false;
    }
    const auto call = std::make_shared<Call>();
    call->work = std::move(work);
    call->ended.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!call->ended) return false;
    auto owner = std::make_unique<std::shared_ptr<Call>>(call);
    if (!Submit(owner.get())) return false;
    static_cast<void>(owner.release());  // the callback's

    if (WaitForSingleObject(call->ended.Get(), milliseconds) == WAIT_OBJECT_0) return true;
    // Counted before the exchange, so that the thread's own decrement never comes first.
    ++leftBehind;
    if (call->phase.exchange(Phase::kLeftBehind) == Phase::kEnded) {
        --leftBehind;
        return true;
    }
    return false;
}

}  // namespace vlm
