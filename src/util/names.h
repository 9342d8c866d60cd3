// How names of ports, printers and shares are compared.
#pragma once

#include <windows.h>

namespace vlm {

// Without regard to case, of any letter and whatever the process's locale, as the system compares its own
// names.
inline bool SameName(const wchar_t* one, const wchar_t* other) {
    return CompareStringOrdinal(one, -1, other, -1, TRUE) == CSTR_EQUAL;
}

// The same as an order, for containers.
struct NameLess {
    bool operator()(const wchar_t* one, const wchar_t* other) const {
        return CompareStringOrdinal(one, -1, other, -1, TRUE) == CSTR_LESS_THAN;
    }
};

}  // namespace vlm
