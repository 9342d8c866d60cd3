// Ctrl+C, and whatever else the system asks a console program to end with.
//
// A command that does nothing about it is ended on the spot, with one line and kInterrupted.
#pragma once

#include <functional>

namespace vlm::ctl {

// Called once, first of all: until then the system's own handler ends the program, under Wine with status 0.
void WatchForInterrupt();

// What is done first when the command is interrupted. One at a time lives in the program.
class OnInterrupt {
 public:
    enum class Then {
        kEnd,   // the program ends, as if there were no OnInterrupt
        kWait,  // the command sees Raised() and ends by itself: within five seconds, or before the next
                // Ctrl+C
    };
    // `act` is called once at most, on a thread of the system's, and throws nothing.
    OnInterrupt(Then then, std::function<void()> act);
    ~OnInterrupt();
    OnInterrupt(const OnInterrupt&) = delete;
    OnInterrupt& operator=(const OnInterrupt&) = delete;

    bool Raised() const;
};

}  // namespace vlm::ctl
