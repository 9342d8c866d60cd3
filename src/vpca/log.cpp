#include "vpca/log.h"

namespace vlm::vpca {

const std::array<const wchar_t*, 13> kLogLabels{
    kLogGeneral,      kLogVersion,     kLogMeasure,       kLogEncodedSize,   kLogEncodeMethod,
    kLogDecodeMethod, kLogDecodeEvent, kLogEncodeEventEx, kLogDecodeEventEx, kLogEncodeFu,
    kLogDecodeFu,     kLogEncodeFp,    kLogDecodeFp};

void Log(LogLevel, const wchar_t*, int) {}

}  // namespace vlm::vpca
