#include "vpca/log.h"

namespace vlm::vpca {

void Log(LogLevel, const wchar_t*, int) {}

}  // namespace vlm::vpca
