// One thread of a soak. It makes one step after the other until the stage ends; a step is a few calls of the
// monitor and the checks of what came of them.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "soak/random.h"
#include "soak/stage.h"

namespace vlm::soak {

// The last error before each operation: any other value afterwards was set by it.
inline constexpr DWORD kPoison = 0xDEADBEEF;

struct Outcome {
    BOOL result = FALSE;
    DWORD error = 0;  // the last error, whatever the result
};

class Worker {
 public:
    Worker(Stage& ownStage, std::string ownName, unsigned ownNumber)
        : stage(ownStage), name(std::move(ownName)), number(ownNumber) {}
    virtual ~Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // The thread's body.
    void Run() {
        while (stage.Continue()) {
            ++step_;
            Random random(stage.options.seed, number, step_);
            Step(random);
            doing_ = "resting";
        }
        doing_ = "over";
    }

    // Does one operation and notes how it went.
    template <typename Call>
    Outcome Do(const char* operation, Call&& call) {
        const double begin = Begin(operation);
        SetLastError(kPoison);
        Outcome outcome;
        outcome.result = call();
        outcome.error = GetLastError();
        stage.report.Note(operation, outcome.result ? 0 : outcome.error, Milliseconds() - begin);
        return outcome;
    }
    // The same for operations that return their code.
    template <typename Call>
    DWORD DoForCode(const char* operation, Call&& call) {
        const double begin = Begin(operation);
        const DWORD code = call();
        stage.report.Note(operation, code, Milliseconds() - begin);
        return code;
    }
    // `text` is called only for a violation.
    template <typename Text>
    void Check(bool good, Text&& text) {
        if (!good) stage.report.Violate(name, step_, text());
    }

    uint64_t StepNumber() const { return step_; }
    // "print-1 step 12 WritePort 3 ms".
    std::string Progress() const {
        return name + " step " + std::to_string(step_) + " " + doing_.load() + " " +
               std::to_string(GetTickCount64() - since_) + " ms";
    }

    Stage& stage;
    const std::string name;
    const unsigned number;

 protected:
    virtual void Step(Random& random) = 0;

 private:
    double Begin(const char* operation) {
        doing_ = operation;
        since_ = GetTickCount64();
        return Milliseconds();
    }
    static double Milliseconds() {
        LARGE_INTEGER frequency;
        LARGE_INTEGER now;
        QueryPerformanceFrequency(&frequency);
        QueryPerformanceCounter(&now);
        return 1000.0 * static_cast<double>(now.QuadPart) / static_cast<double>(frequency.QuadPart);
    }

    std::atomic<uint64_t> step_{0};
    std::atomic<const char*> doing_{"starting"};
    std::atomic<ULONGLONG> since_{GetTickCount64()};
};

}  // namespace vlm::soak
