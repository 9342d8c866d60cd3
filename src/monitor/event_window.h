// The hidden window on a thread of its own, through which the process hears of a system suspend.
//
// When the system announces a suspend the window raises the suspend flag (process_state.h): the connection to
// a printer will not survive the sleep, so writes are refused until the next job starts. Systems before
// Windows 6.0 do not get that guard.
#pragma once

namespace vlm {

inline constexpr wchar_t kEventWindowClass[] = L"VLLM3MON_LM_CLASS";
inline constexpr wchar_t kEventWindowTitle[] = L"VLLM3MON_LM_WINDOW";

// True when the window is there: made now, or found because another initialisation or another process runs
// it. Waits at most 100 s for the new thread's window, and not at all once that thread has given up.
bool StartEventWindow();

// Ends the window thread of this module, waiting at most 3 s for it.
void StopEventWindow();

}  // namespace vlm
