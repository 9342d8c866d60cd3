#pragma once

#include <windows.h>

namespace vlm::bench {

// Processor time of this process, because minutes of pure computing on a shared machine measure its other
// users otherwise. Its clock ticks every 10 ms or so, which what is measured here has to exceed by far.
inline double ProcessorMilliseconds() {
    FILETIME created, ended, kernel, user;
    GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
    const auto value = [](const FILETIME& time) {
        return static_cast<double>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart);
    };
    return (value(kernel) + value(user)) / 1e4;
}

}  // namespace vlm::bench
