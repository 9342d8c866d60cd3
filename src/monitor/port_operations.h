// The spooler's operations on one port, in the shape of their MONITOR2 slots. Each does a little bookkeeping
// and forwards to the lower monitor; the data of a job passes through untouched.
//
// A null handle is refused with 87, a handle that is no open port with 1461. GetPrinterDataFromPort and
// SendRecvBidiDataFromPort, which returns its codes, answer 1461 to both. The last error after a forwarded
// call is what the lower monitor left; the bookkeeping around it does not show.
#pragma once

#include "monitor/lm_port.h"
#include "util/spooler_api.h"

namespace vlm {

BOOL WINAPI OpenPortEx(HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pszPortName, LPWSTR pPrinterName,
                       PHANDLE pHandle, LPMONITOR2 pMonitor2) noexcept;
BOOL WINAPI StartDocPort(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level,
                         LPBYTE pDocInfo) noexcept;
BOOL WINAPI WritePort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) noexcept;
BOOL WINAPI ReadPort(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead) noexcept;
// Always FALSE, also after success: what this monitor's users have come to rely on.
BOOL WINAPI EndDocPort(HANDLE hPort) noexcept;
BOOL WINAPI ClosePort(HANDLE hPort) noexcept;
BOOL WINAPI GetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer,
                                   DWORD cbInBuffer, LPWSTR lpOutBuffer, DWORD cbOutBuffer,
                                   LPDWORD lpcbReturned) noexcept;
DWORD WINAPI SendRecvBidiDataFromPort(HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction,
                                      PBIDI_REQUEST_CONTAINER pReqData,
                                      PBIDI_RESPONSE_CONTAINER* ppResData) noexcept;

// The port behind a handle, or null with the last error set: 87 for a null handle, 1461 for one that is no
// open port.
LmPort* PortOf(HANDLE hPort);
// The same, and also a port that is barred because a Shutdown waits: a document may still be ended.
LmPort* EndingPortOf(HANDLE hPort);

}  // namespace vlm
