// How the COM-based code reports failure: an exception that carries an HRESULT together with the source
// position that raised it, the text of its report, and the reason in words.
//
// CComErrorEx is thrown inside the Bidi engine and the XML wrapper, and caught at their boundaries: there its
// HRESULT becomes the return value, its report goes to the trace, and its reason goes up (outcome.h). A
// failure without a source position is a plain _com_error, its base. Both are used strictly wide (see com.h).
#pragma once

#include <string>

#include "util/com.h"

namespace vlm {

// A BSTR string, counted like its base, that can be formatted into (Format below).
class _bstr_t_ex : public _bstr_t {
 public:
    using _bstr_t::_bstr_t;
    _bstr_t_ex() = default;

    // Never null, unlike the base's conversion of an empty string.
    const wchar_t* Text() const {
        const auto* text = static_cast<const wchar_t*>(*this);
        return text != nullptr ? text : L"";
    }
};

// Formats like wprintf into `out`. Throws CComErrorEx (source "vlutil") when the text cannot be formatted,
// and _com_error(E_OUTOFMEMORY) when it cannot be stored.
void Format(_bstr_t_ex& out, const wchar_t* format, ...);

class CComErrorEx : public _com_error {
 public:
    // `sourcePath` must outlive the exception; a string literal does. Throws _com_error(E_OUTOFMEMORY)
    // instead when the texts cannot be stored.
    CComErrorEx(HRESULT hr, const char* sourcePath, unsigned line, const wchar_t* reason = nullptr);

    // What follows the last backslash of the path, or the whole path when it has none.
    const char* File() const { return file_; }
    unsigned Line() const { return line_; }
    // "Access denied. (file=velunbidispl, line=71)\r\n", ready for the trace.
    const wchar_t* Message() const { return message_.Text(); }
    // What went wrong, in words; the report if no reason was given.
    std::wstring Reason() const;

 private:
    const char* file_;
    unsigned line_;
    _bstr_t_ex message_;
    _bstr_t_ex reason_;
};

}  // namespace vlm
