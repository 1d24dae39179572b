// An owner for kernel handles (files, events, threads): closed exactly once.
#pragma once

#include <windows.h>

namespace qb {

class UniqueHandle {
  public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE handle) : handle_(handle) {}
    ~UniqueHandle() { Reset(); }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }

    HANDLE Get() const { return handle_; }
    bool IsValid() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
    HANDLE Release() {
        HANDLE h = handle_;
        handle_ = nullptr;
        return h;
    }
    void Reset(HANDLE handle = nullptr) {
        if (IsValid()) ::CloseHandle(handle_);
        handle_ = handle;
    }

  private:
    HANDLE handle_ = nullptr;
};

// FindFirstFileW handles are closed with FindClose, not CloseHandle.
class UniqueFindHandle {
  public:
    explicit UniqueFindHandle(HANDLE handle) : handle_(handle) {}
    ~UniqueFindHandle() {
        if (IsValid()) ::FindClose(handle_);
    }
    UniqueFindHandle(const UniqueFindHandle&) = delete;
    UniqueFindHandle& operator=(const UniqueFindHandle&) = delete;

    HANDLE Get() const { return handle_; }
    bool IsValid() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }

  private:
    HANDLE handle_;
};

}  // namespace qb
