// Asks a printer whether a department ID and its password belong together.
#pragma once

#include <windows.h>

namespace vlm {

// `url` as ParseServiceUrl() reads it, with the path "/active/deptid" where it has none. No text may be null;
// an empty one is sent as an empty element. `result` is written on S_OK only. The exchange is bounded as
// soap_wininet_client.h says, with a time-out of 5 seconds. The password is sent as it is,
// and is never traced.
//
// For threads with COM initialised; failures are HRESULTs, with the reason in the trace.
HRESULT CheckUserPassword(const wchar_t* url, const wchar_t* username, const wchar_t* password,
                          const wchar_t* type, const wchar_t* domain, bool* result);

}  // namespace vlm
