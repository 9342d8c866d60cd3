// COM ownership and the MSXML identifiers that the toolchain's headers and libraries leave out.
//
// BSTRs and VARIANTs are held by the platform's own _bstr_t and _variant_t (comdef.h), used strictly wide:
// mingw has no converter behind their narrow constructors. They throw _com_error when memory runs out.
#pragma once

#include <windows.h>
// windows.h first.
#include <comdef.h>
#include <msxml2.h>
#include <ole2.h>
#include <oleauto.h>

#include <utility>

#include "util/handles.h"

namespace vlm {

// A counted reference to a COM object.
template <typename Interface>
class ComPtr {
 public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    // Adds a reference of its own.
    explicit ComPtr(Interface* object) : object_(object) {
        if (object_ != nullptr) object_->AddRef();
    }
    ComPtr(const ComPtr& other) : ComPtr(other.object_) {}
    ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~ComPtr() { Reset(); }

    // Takes over a reference that the caller owns.
    static ComPtr Attach(Interface* object) {
        ComPtr pointer;
        pointer.object_ = object;
        return pointer;
    }

    Interface* Get() const { return object_; }
    Interface* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // For functions that hand out a reference through a pointer; what was held before is released first.
    Interface** Receive() {
        Reset();
        return &object_;
    }
    void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }
    // Gives the reference to the caller.
    Interface* Detach() { return std::exchange(object_, nullptr); }
    void Reset() {
        if (object_ == nullptr) return;
        const LastErrorKeeper keeper;
        std::exchange(object_, nullptr)->Release();
    }

 private:
    Interface* object_ = nullptr;
};

// COM initialised on this thread for the scope. A thread that already runs COM in another mode keeps it, and
// COM is usable all the same.
class ComApartment {
 public:
    explicit ComApartment(DWORD mode) : result_(CoInitializeEx(nullptr, mode)) {}
    ~ComApartment() {
        const LastErrorKeeper keeper;
        if (SUCCEEDED(result_)) CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

 private:
    HRESULT result_;
};

// Identifiers as the platform publishes them (MSXML 3.0 and 6.0).
namespace msxml {
inline constexpr GUID kDomDocument60 = {
    0x88d96a05, 0xf192, 0x11d4, {0xa6, 0x5f, 0x00, 0x40, 0x96, 0x32, 0x51, 0xe5}};
inline constexpr GUID kSaxXmlReader30 = {
    0x3124c396, 0xfb13, 0x4836, {0xa6, 0xad, 0x13, 0x17, 0xf1, 0x71, 0x36, 0x88}};
inline constexpr IID kIXMLDOMDocument2 = {
    0x2933bf95, 0x7b36, 0x11d2, {0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98, 0x3e, 0x60}};
inline constexpr IID kISAXXMLReader = {
    0xa4f96ed0, 0xf829, 0x476e, {0x81, 0xc0, 0xcd, 0xc7, 0xbd, 0x2a, 0x08, 0x02}};
inline constexpr IID kISAXContentHandler = {
    0x1545cdfa, 0x9e4e, 0x4497, {0xa8, 0xa4, 0x2b, 0xf7, 0xd0, 0x11, 0x2c, 0x44}};
inline constexpr IID kISAXErrorHandler = {
    0xa60511c4, 0xccf5, 0x479e, {0x98, 0xa3, 0xdc, 0x8d, 0xc5, 0x45, 0xb7, 0xd0}};
}  // namespace msxml

}  // namespace vlm
