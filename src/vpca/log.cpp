#include "vpca/log.h"

namespace vlm::vpca {

const wchar_t* const kUnusedLogLabels[] = {
    L"VPCA Coder:",           L"VPCA Encoder (Method):",  L"VPCA Decoder (Method):",
    L"VPCA Decoder (Event):", L"VPCA Encoder (EventEx):", L"VPCA Decoder (EventEx):"};

void Log(LogLevel, const wchar_t*, int) {}

}  // namespace vlm::vpca
