// The spooler's operations on one port, with the signatures of their MONITOR2 slots. Each does a little
// bookkeeping and forwards to the lower monitor; job data passes through unchanged.
//
// A null handle is refused with 87, a handle of anything but an open port with 1461. GetPrinterDataFromPort
// and SendRecvBidiDataFromPort, which returns its codes, refuse both with 1461. After a forwarded call the
// last error is the lower monitor's, whatever the bookkeeping around it did.
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
// Always FALSE, even after success: users of this monitor rely on it.
BOOL WINAPI EndDocPort(HANDLE hPort) noexcept;
BOOL WINAPI ClosePort(HANDLE hPort) noexcept;
BOOL WINAPI GetPrinterDataFromPort(HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer,
                                   DWORD cbInBuffer, LPWSTR lpOutBuffer, DWORD cbOutBuffer,
                                   LPDWORD lpcbReturned) noexcept;
DWORD WINAPI SendRecvBidiDataFromPort(HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction,
                                      PBIDI_REQUEST_CONTAINER pReqData,
                                      PBIDI_RESPONSE_CONTAINER* ppResData) noexcept;

// The port of a handle, or null with the last error set as above.
LmPort* PortOf(HANDLE hPort);
// The same, but also accepts a port that a waiting Shutdown has barred: its document may still be ended.
LmPort* EndingPortOf(HANDLE hPort);

}  // namespace vlm
