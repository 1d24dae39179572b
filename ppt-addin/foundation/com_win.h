// Owners for the OLE Automation resources the add-in handles: BSTRs, VARIANTs
// and SAFEARRAYs, each freed exactly once by the call that matches it. COM
// interface pointers are held by Microsoft::WRL::ComPtr.
#pragma once

#include <windows.h>

#include <oleauto.h>
#include <wrl/client.h>

#include <string>
#include <string_view>

namespace qb {

using Microsoft::WRL::ComPtr;

class ScopedBstr {
  public:
    ScopedBstr() = default;
    // Embedded NULs are kept: the length is the view's, not the first NUL's.
    explicit ScopedBstr(std::u16string_view text)
        : bstr_(::SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                                    static_cast<UINT>(text.size()))) {}
    ~ScopedBstr() { Reset(); }
    ScopedBstr(const ScopedBstr&) = delete;
    ScopedBstr& operator=(const ScopedBstr&) = delete;
    ScopedBstr(ScopedBstr&& other) noexcept : bstr_(other.Release()) {}
    ScopedBstr& operator=(ScopedBstr&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }

    BSTR Get() const { return bstr_; }
    UINT Length() const { return ::SysStringLen(bstr_); }
    std::u16string ToU16() const {
        return std::u16string(reinterpret_cast<const char16_t*>(bstr_), Length());
    }
    // For an out parameter: frees what is held, then lends the slot.
    BSTR* Receive() {
        Reset();
        return &bstr_;
    }
    BSTR Release() {
        BSTR b = bstr_;
        bstr_ = nullptr;
        return b;
    }
    void Reset(BSTR bstr = nullptr) {
        if (bstr_ != bstr) ::SysFreeString(bstr_);
        bstr_ = bstr;
    }

  private:
    BSTR bstr_ = nullptr;
};

class ScopedVariant {
  public:
    ScopedVariant() { ::VariantInit(&value_); }
    ~ScopedVariant() { ::VariantClear(&value_); }
    ScopedVariant(const ScopedVariant&) = delete;
    ScopedVariant& operator=(const ScopedVariant&) = delete;

    VARIANT* Get() { return &value_; }
    const VARIANT& Value() const { return value_; }
    // For an out parameter: clears what is held, then lends the slot.
    VARIANT* Receive() {
        ::VariantClear(&value_);
        return &value_;
    }
    // Hands the content to the caller, who must clear it; this one is left empty.
    VARIANT Release() {
        VARIANT v = value_;
        ::VariantInit(&value_);
        return v;
    }

  private:
    VARIANT value_;
};

class ScopedSafeArray {
  public:
    ScopedSafeArray() = default;
    explicit ScopedSafeArray(SAFEARRAY* array) : array_(array) {}
    ~ScopedSafeArray() { Reset(); }
    ScopedSafeArray(const ScopedSafeArray&) = delete;
    ScopedSafeArray& operator=(const ScopedSafeArray&) = delete;
    ScopedSafeArray(ScopedSafeArray&& other) noexcept : array_(other.Release()) {}
    ScopedSafeArray& operator=(ScopedSafeArray&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }

    SAFEARRAY* Get() const { return array_; }
    SAFEARRAY* Release() {
        SAFEARRAY* a = array_;
        array_ = nullptr;
        return a;
    }
    void Reset(SAFEARRAY* array = nullptr) {
        if (array_ && array_ != array) ::SafeArrayDestroy(array_);
        array_ = array;
    }

  private:
    SAFEARRAY* array_ = nullptr;
};

// Holds a SAFEARRAY's data locked for direct access while in scope.
class SafeArrayDataLock {
  public:
    explicit SafeArrayDataLock(SAFEARRAY* array) : array_(array) {
        hr_ = ::SafeArrayAccessData(array_, &data_);
    }
    ~SafeArrayDataLock() {
        if (SUCCEEDED(hr_)) ::SafeArrayUnaccessData(array_);
    }
    SafeArrayDataLock(const SafeArrayDataLock&) = delete;
    SafeArrayDataLock& operator=(const SafeArrayDataLock&) = delete;

    HRESULT Status() const { return hr_; }
    void* Data() const { return data_; }

  private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
    HRESULT hr_;
};

}  // namespace qb
