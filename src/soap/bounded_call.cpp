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
    std::atomic<Phase> phase{Phase::kRunning};
    HMODULE module = nullptr;  // a reference that the thread gives back with its last instruction
};

DWORD WINAPI RunCall(void* argument) {
    HMODULE module = nullptr;
    {
        const std::unique_ptr<std::shared_ptr<Call>> owner(static_cast<std::shared_ptr<Call>*>(argument));
        Call& call = **owner;
        module = call.module;
        GuardHresult([&] {
            call.work();
            return S_OK;
        });
        // What the work holds goes before its end is announced: the caller may look for leaks.
        call.work = nullptr;
        if (call.phase.exchange(Phase::kEnded) == Phase::kLeftBehind) --leftBehind;
    }
    FreeLibraryAndExitThread(module, 0);
}

HMODULE ReferenceToThisModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const wchar_t*>(&RunCall),
                       &module);
    return module;
}

}  // namespace

bool RunBounded(std::function<void()> work, DWORD milliseconds) {
    if (leftBehind.load() >= kMostLeftBehind) {
        Trace(L"SOAP: %ld calls to printers hang, no new one is begun\r\n", leftBehind.load());
        return false;
    }
    auto call = std::make_shared<Call>();
    call->work = std::move(work);
    auto owner = std::make_unique<std::shared_ptr<Call>>(call);
    Module module(ReferenceToThisModule());
    call->module = module.Get();
    const KernelHandle thread(CreateThread(nullptr, 0, &RunCall, owner.get(), 0, nullptr));
    if (!thread) return false;
    owner.release();
    module.Release();

    if (WaitForSingleObject(thread.Get(), milliseconds) == WAIT_OBJECT_0) return true;
    // Counted before the exchange, so that the thread's own decrement never comes first.
    ++leftBehind;
    if (call->phase.exchange(Phase::kLeftBehind) == Phase::kEnded) {
        --leftBehind;
        return true;
    }
    return false;
}

}  // namespace vlm
