#include "monitor/event_window.h"

#include <windows.h>

#include <atomic>
#include <utility>

#include "monitor/process_state.h"
#include "util/handles.h"
#include "util/system_version.h"
#include "util/trace.h"

namespace vlm {

namespace {

constexpr DWORD kStartTimeout = 100'000;  // milliseconds
constexpr DWORD kStopTimeout = 3'000;     // milliseconds
constexpr DWORD kStopPause = 5;           // milliseconds

// No destructors here: at process exit the thread is gone and nothing of this may be touched.
std::atomic<HWND> window{nullptr};
HANDLE thread VLM_GUARDED_BY(processState.monitorLock) = nullptr;
std::atomic<HANDLE> windowCreated{nullptr};  // manual-reset; made once, before the first thread
std::atomic<bool> leaving{false};            // the thread calls nothing any more, it only returns

LRESULT CALLBACK WindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_DESTROY:
            // Before the window is gone for others, so that whoever misses it finds the thread on its way
            // out.
            window.store(nullptr, std::memory_order_release);
            ResetEvent(windowCreated);
            PostQuitMessage(0);
            break;
        case WM_POWERBROADCAST:
            if (wParam == PBT_APMSUSPEND && SystemVersion().dwMajorVersion >= 6) {
                processState.suspended.store(true, std::memory_order_relaxed);
                Trace(L"The system suspends: writes are refused until the next job starts\r\n");
            }
            break;
        default:
            break;
    }
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

DWORD WINAPI RunWindow(void*) {
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.style = CS_HREDRAW | CS_VREDRAW;
    windowClass.lpfnWndProc = WindowProcedure;
    windowClass.hInstance = processState.instance;
    windowClass.lpszClassName = kEventWindowClass;
    RegisterClassExW(&windowClass);  // a failure shows as a window that cannot be created

    const HWND created =
        CreateWindowExW(0, kEventWindowClass, kEventWindowTitle, WS_VISIBLE, CW_USEDEFAULT, 0, CW_USEDEFAULT,
                        0, nullptr, nullptr, processState.instance, nullptr);
    if (created != nullptr) {
        ShowWindow(created, SW_HIDE);
        UpdateWindow(created);
        // Only now: these first calls may load system DLLs, which a thread cannot do any more once the module
        // is being detached.
        window.store(created, std::memory_order_release);
        SetEvent(windowCreated);
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
            DispatchMessageW(&message);
        DestroyWindow(created);
    }
    // The class must not outlive the code of its window procedure.
    UnregisterClassW(kEventWindowClass, processState.instance);
    leaving.store(true, std::memory_order_release);
    return 0;
}

// Whether the thread can run no more code of this module. A thread that ends needs the loader lock, which
// whoever detaches the module holds; so at detach its end cannot be waited for, only that it has left our
// code.
bool HasLeftModule(HANDLE leaver) {
    if (!leaving.load(std::memory_order_acquire)) return false;
    if (SuspendThread(leaver) == static_cast<DWORD>(-1)) return true;
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    MEMORY_BASIC_INFORMATION code{};
    const bool known = GetThreadContext(leaver, &context) != FALSE &&
                       VirtualQuery(reinterpret_cast<void*>(context.Rip), &code, sizeof code) != 0;
    ResumeThread(leaver);
    return known && code.AllocationBase != processState.instance;
}

void AwaitThread(HANDLE leaver) {
    const ULONGLONG deadline = GetTickCount64() + kStopTimeout;
    while (WaitForSingleObject(leaver, kStopPause) == WAIT_TIMEOUT && !HasLeftModule(leaver) &&
           GetTickCount64() < deadline) {
    }
}

// A handle of the caller's own for the thread: another initialisation may find the thread ended, close the
// module's handle and start a new one, while this one still waits.
KernelHandle ThreadToAwait() VLM_REQUIRES(processState.monitorLock) {
    KernelHandle copy;
    DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), copy.Receive(), SYNCHRONIZE, FALSE, 0);
    return copy;
}

// The thread, which is started unless it runs; null when it cannot be. Two initialisations at once start one.
KernelHandle EnsureThread(bool* started) {
    const LockGuard guard(processState.monitorLock);
    *started = false;
    if (thread != nullptr) {
        if (WaitForSingleObject(thread, 0) != WAIT_OBJECT_0) return ThreadToAwait();
        KernelHandle(std::exchange(thread, nullptr)).Reset();
    }
    if (windowCreated.load() == nullptr) windowCreated.store(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (windowCreated.load() == nullptr) return {};
    leaving.store(false, std::memory_order_relaxed);
    thread = CreateThread(nullptr, 0, RunWindow, nullptr, 0, nullptr);
    *started = true;
    return thread != nullptr ? ThreadToAwait() : KernelHandle();
}

}  // namespace

bool StartEventWindow() {
    if (FindWindowW(kEventWindowClass, kEventWindowTitle) != nullptr) return true;
    for (;;) {
        bool started = false;
        const KernelHandle running = EnsureThread(&started);
        if (!running) return false;
        const HANDLE either[] = {windowCreated.load(), running.Get()};
        const DWORD waited = WaitForMultipleObjects(2, either, FALSE, kStartTimeout);
        if (window.load(std::memory_order_acquire) != nullptr) return true;
        // A thread that ran already may have been that of a window which somebody closed: it is gone now,
        // start anew.
        if (started || waited == WAIT_TIMEOUT) return false;
    }
}

VLM_UNCHECKED void StopEventWindow() {
    // Without the lock: no other thread is in the module, and an operation that an exception of the
    // system's ended may have left it taken.
    if (thread == nullptr) return;
    // Without a window, or with one that takes no message any more, the thread is on its way out all the
    // same.
    const HWND target = window.load(std::memory_order_acquire);
    if (target != nullptr) PostMessageW(target, WM_DESTROY, 0, 0);
    AwaitThread(thread);
    window.store(nullptr, std::memory_order_release);
    KernelHandle(std::exchange(thread, nullptr)).Reset();
    KernelHandle(windowCreated.exchange(nullptr)).Reset();
}

}  // namespace vlm
