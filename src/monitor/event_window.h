// The hidden window, on its own thread, that receives the system's suspend notice.
//
// On a suspend notice it raises the suspend flag (process_state.h): the connection to a printer will not
// survive the sleep, so writes are refused until the next job starts. Not on systems before Windows 6.0.
#pragma once

namespace vlm {

inline constexpr wchar_t kEventWindowClass[] = L"VLLM3MON_LM_CLASS";
inline constexpr wchar_t kEventWindowTitle[] = L"VLLM3MON_LM_WINDOW";

// True when the window exists: created now, or found because another initialisation or process has it. Waits
// at most 100 s for the new thread's window, and stops waiting when that thread ends.
bool StartEventWindow();

// Ends the window thread of this module, waiting at most 3 s for it.
void StopEventWindow();

}  // namespace vlm
