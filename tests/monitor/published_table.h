// MONITOR2 as it is published, with its last slot, in place of the toolchain's. Included ahead of the
// monitor's sources, which have to build with either shape.
#pragma once

#include "util/spooler_api.h"

struct PublishedMonitor2 {
    DWORD cbSize;
    decltype(MONITOR2::pfnEnumPorts) pfnEnumPorts;
    decltype(MONITOR2::pfnOpenPort) pfnOpenPort;
    BOOL(WINAPI* pfnOpenPortEx)(HANDLE, HANDLE, LPWSTR, LPWSTR, PHANDLE, PublishedMonitor2*);
    decltype(MONITOR2::pfnStartDocPort) pfnStartDocPort;
    decltype(MONITOR2::pfnWritePort) pfnWritePort;
    decltype(MONITOR2::pfnReadPort) pfnReadPort;
    decltype(MONITOR2::pfnEndDocPort) pfnEndDocPort;
    decltype(MONITOR2::pfnClosePort) pfnClosePort;
    decltype(MONITOR2::pfnAddPort) pfnAddPort;
    decltype(MONITOR2::pfnAddPortEx) pfnAddPortEx;
    decltype(MONITOR2::pfnConfigurePort) pfnConfigurePort;
    decltype(MONITOR2::pfnDeletePort) pfnDeletePort;
    decltype(MONITOR2::pfnGetPrinterDataFromPort) pfnGetPrinterDataFromPort;
    decltype(MONITOR2::pfnSetPortTimeOuts) pfnSetPortTimeOuts;
    decltype(MONITOR2::pfnXcvOpenPort) pfnXcvOpenPort;
    decltype(MONITOR2::pfnXcvDataPort) pfnXcvDataPort;
    decltype(MONITOR2::pfnXcvClosePort) pfnXcvClosePort;
    decltype(MONITOR2::pfnShutdown) pfnShutdown;
    decltype(MONITOR2::pfnSendRecvBidiDataFromPort) pfnSendRecvBidiDataFromPort;
    decltype(MONITOR2::pfnNotifyUsedPorts) pfnNotifyUsedPorts;
    decltype(MONITOR2::pfnNotifyUnusedPorts) pfnNotifyUnusedPorts;
    DWORD(WINAPI* pfnPowerEvent)(HANDLE, DWORD, POWERBROADCAST_SETTING*);
};

#define MONITOR2 PublishedMonitor2
#define LPMONITOR2 PublishedMonitor2*
