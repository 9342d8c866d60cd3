// VLM_NOINLINE: a function of rare cases, kept out of those that call it, and so of their registers.
#pragma once

#if defined(_MSC_VER)
#define VLM_NOINLINE __declspec(noinline)
#else
#define VLM_NOINLINE __attribute__((noinline, cold))
#endif
