// The spooler's interface, in the one order in which its headers compile.
#pragma once

#include <windows.h>

#include <winspool.h>

#include <winsplp.h>
