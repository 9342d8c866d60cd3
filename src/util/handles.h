// RAII for the platform's resources. Every owner here releases what it holds exactly once, is movable where
// moving makes sense, and keeps GetLastError() as it was, so that clean-up never hides the error that led to
// it.
#pragma once

#include <windows.h>

#include <bit>
#include <utility>

namespace vlm {

// Puts the thread's last error back at the end of the scope.
class LastErrorKeeper {
 public:
    LastErrorKeeper() : error_(GetLastError()) {}
    ~LastErrorKeeper() { SetLastError(error_); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

    // From here on the current last error is the one to keep.
    void Update() { error_ = GetLastError(); }
    // Puts the kept error back already now, for a call that may look at it or leave it alone.
    void Restore() const { SetLastError(error_); }

 private:
    DWORD error_;
};

// Owns one value of a Traits::Type, released by Traits::Close; Traits::Invalid() means "holds nothing".
template <typename Traits>
class Unique {
 public:
    using Type = typename Traits::Type;

    Unique() = default;
    explicit Unique(Type value) : value_(value) {}
    Unique(Unique&& other) noexcept : value_(other.Release()) {}
    Unique& operator=(Unique&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;
    ~Unique() { Reset(); }

    Type Get() const { return value_; }
    explicit operator bool() const { return value_ != Traits::Invalid(); }
    // For functions that hand out a resource through a pointer; what was held before is released first.
    Type* Receive() {
        Reset();
        return &value_;
    }
    Type Release() { return std::exchange(value_, Traits::Invalid()); }
    void Reset(Type value = Traits::Invalid()) {
        const Type old = std::exchange(value_, value);
        if (old == Traits::Invalid()) return;
        const LastErrorKeeper keeper;
        Traits::Close(old);
    }

 private:
    Type value_ = Traits::Invalid();
};

// For a Type whose null holds nothing.
template <typename Handle>
struct NullTraits {
    using Type = Handle;
    static Type Invalid() { return nullptr; }
};

struct KernelHandleTraits : NullTraits<HANDLE> {
    static void Close(Type handle) { CloseHandle(handle); }
};
// A kernel object whose creator reports failure with null (events, threads, processes; not files).
using KernelHandle = Unique<KernelHandleTraits>;

struct FileTraits : KernelHandleTraits {
    static Type Invalid() { return INVALID_HANDLE_VALUE; }
};
// What CreateFileW gives.
using File = Unique<FileTraits>;

struct ModuleTraits : NullTraits<HMODULE> {
    static void Close(Type module) { FreeLibrary(module); }
};
using Module = Unique<ModuleTraits>;

struct GlobalMemoryTraits : NullTraits<void*> {
    static void Close(Type memory) { GlobalFree(memory); }
};
// A fixed block of the global heap.
using GlobalMemory = Unique<GlobalMemoryTraits>;

// The function `name` of `module` as a Function pointer; null when the module, which may be null, does not
// export it.
template <typename Function>
Function* FindFunction(HMODULE module, const char* name) {
    return module == nullptr ? nullptr : std::bit_cast<Function*>(GetProcAddress(module, name));
}

}  // namespace vlm
