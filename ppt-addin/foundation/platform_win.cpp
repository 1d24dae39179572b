// Windows side of the platform services: kernel32, shell32 and advapi32.
#include <shlobj.h>
#include <windows.h>

#include <algorithm>

#include "foundation/handle_win.h"
#include "foundation/platform.h"
#include "foundation/wide_win.h"
#include "foundation/window_win.h"

namespace qb::platform {

const char16_t kPathSeparator = u'\\';

namespace {

std::uint64_t FromFileTime(const FILETIME& ft) {
    return (static_cast<std::uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

class WindowsClock final : public Clock {
  public:
    std::uint64_t TickCount64() override { return ::GetTickCount64(); }

    LocalTime LocalNow() override {
        SYSTEMTIME st{};
        ::GetLocalTime(&st);
        LocalTime t;
        t.year = st.wYear;
        t.month = st.wMonth;
        t.day = st.wDay;
        t.hour = st.wHour;
        t.minute = st.wMinute;
        t.second = st.wSecond;
        t.milliseconds = st.wMilliseconds;
        return t;
    }

    std::uint64_t SystemFileTime() override {
        FILETIME ft{};
        ::GetSystemTimeAsFileTime(&ft);
        return FromFileTime(ft);
    }

    void Sleep(std::uint32_t milliseconds) override { ::Sleep(milliseconds); }
};

std::u16string ModuleFolder() {
    // The add-in's own file, not the host's executable.
    const HMODULE module = OwnModule();
    if (!module) return {};
    wchar_t buffer[MAX_PATH] = {};
    const DWORD n = ::GetModuleFileNameW(module, buffer, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return {};
    std::u16string path = FromWide(buffer, n);
    const std::size_t cut = path.find_last_of(u"\\/");
    if (cut == std::u16string::npos) return {};
    return path.substr(0, cut);
}

}  // namespace

std::u16string MainModulePath() {
    wchar_t buffer[MAX_PATH] = {};
    const DWORD n = ::GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return {};
    return FromWide(buffer, n);
}

namespace {

std::u16string ShellFolder(int csidl) {
    wchar_t buffer[MAX_PATH] = {};
    if (FAILED(::SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, buffer))) return {};
    return FromWide(buffer);
}

FileInfo InfoFromFindData(const WIN32_FIND_DATAW& data) {
    FileInfo info;
    info.isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info.size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    info.lastWriteFileTime = FromFileTime(data.ftLastWriteTime);
    return info;
}

}  // namespace

Clock& SystemClock() {
    static WindowsClock clock;
    return clock;
}

std::uint32_t CurrentThreadId() {
    return ::GetCurrentThreadId();
}

std::u16string native::GetKnownFolder(KnownFolder folder) {
    switch (folder) {
        case KnownFolder::LocalAppData:
            return ShellFolder(CSIDL_LOCAL_APPDATA);
        case KnownFolder::RoamingAppData:
            return ShellFolder(CSIDL_APPDATA);
        case KnownFolder::Module:
            return ModuleFolder();
    }
    return {};
}

bool native::IsUserActive() {
    if (::GetAsyncKeyState(VK_LBUTTON) < 0) return true;  // the high bit: held down now
    if (::GetCapture() != nullptr) return true;           // a drag in progress
    // Mouse moves or button messages arrived since the last look.
    return (LOWORD(::GetQueueStatus(QS_INPUT)) & (QS_MOUSEMOVE | QS_MOUSEBUTTON)) != 0;
}

std::uint16_t native::UserDefaultUiLanguage() {
    return ::GetUserDefaultUILanguage();
}

void native::DebugOutput(std::u16string_view text) {
    const std::u16string terminated(text);
    ::OutputDebugStringW(AsWide(terminated));
}

bool GetFileInfo(const std::u16string& path, FileInfo& info) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (path.empty() || !::GetFileAttributesExW(AsWide(path), GetFileExInfoStandard, &data)) {
        return false;
    }
    info.isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info.size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    info.lastWriteFileTime = FromFileTime(data.ftLastWriteTime);
    return true;
}

std::vector<DirectoryEntry> ListDirectory(const std::u16string& directory) {
    std::vector<DirectoryEntry> entries;
    if (directory.empty()) return entries;
    const std::u16string pattern = JoinPath(directory, u"*");
    WIN32_FIND_DATAW data{};
    UniqueFindHandle find(::FindFirstFileW(AsWide(pattern), &data));
    if (!find.IsValid()) return entries;
    do {
        const std::u16string name = FromWide(data.cFileName);
        if (name == u"." || name == u"..") continue;
        entries.push_back(DirectoryEntry{name, InfoFromFindData(data)});
    } while (::FindNextFileW(find.Get(), &data));
    return entries;
}

bool MakeDirectory(const std::u16string& path) {
    if (path.empty()) return false;
    if (::CreateDirectoryW(AsWide(path), nullptr)) return true;
    const DWORD attributes = ::GetFileAttributesW(AsWide(path));
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool CreateEmptyFile(const std::u16string& path) {
    if (path.empty()) return false;
    UniqueHandle file(::CreateFileW(AsWide(path), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr));
    return file.IsValid();
}

bool AppendToFile(const std::u16string& path, const void* data, std::size_t size) {
    if (path.empty()) return false;
    UniqueHandle file(::CreateFileW(AsWide(path), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsValid()) return false;
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD written = 0;
        if (!::WriteFile(file.Get(), p, chunk, &written, nullptr) || written == 0) return false;
        p += written;
        size -= written;
    }
    return true;
}

bool ReadWholeFile(const std::u16string& path, std::string& bytes) {
    bytes.clear();
    if (path.empty()) return false;
    UniqueHandle file(::CreateFileW(AsWide(path), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsValid()) return false;
    char buffer[65536];
    for (;;) {
        DWORD n = 0;
        if (!::ReadFile(file.Get(), buffer, sizeof buffer, &n, nullptr)) {
            bytes.clear();
            return false;
        }
        if (n == 0) break;
        bytes.append(buffer, n);
    }
    return true;
}

bool WriteNewFile(const std::u16string& path, const void* data, std::size_t size) {
    if (path.empty()) return false;
    bool ok = true;
    {
        UniqueHandle file(::CreateFileW(AsWide(path), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file.IsValid()) return false;
        const char* bytes = static_cast<const char*>(data);
        for (std::size_t done = 0; ok && done < size;) {
            const DWORD piece = static_cast<DWORD>(std::min<std::size_t>(size - done, 1u << 20));
            DWORD written = 0;
            ok =
                ::WriteFile(file.Get(), bytes + done, piece, &written, nullptr) && written == piece;
            done += piece;
        }
    }
    if (!ok) {
        const DWORD saved = ::GetLastError();
        ::DeleteFileW(AsWide(path));
        ::SetLastError(saved);
    }
    return ok;
}

std::uint32_t LastErrorCode() {
    return ::GetLastError();
}

bool RemoveFile(const std::u16string& path) {
    return !path.empty() && ::DeleteFileW(AsWide(path));
}

bool MoveFileReplacing(const std::u16string& from, const std::u16string& to) {
    return !from.empty() && !to.empty() &&
           ::MoveFileExW(AsWide(from), AsWide(to), MOVEFILE_REPLACE_EXISTING);
}

bool SetFileLastWriteTime(const std::u16string& path, std::uint64_t fileTime) {
    if (path.empty()) return false;
    UniqueHandle file(::CreateFileW(AsWide(path), FILE_WRITE_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file.IsValid()) return false;
    FILETIME ft{static_cast<DWORD>(fileTime & 0xFFFFFFFFu), static_cast<DWORD>(fileTime >> 32)};
    return ::SetFileTime(file.Get(), nullptr, nullptr, &ft) != FALSE;
}

bool ReadUserRegistryString(std::u16string_view subKey, std::u16string_view valueName,
                            std::u16string& value) {
    value.clear();
    const std::u16string key(subKey), name(valueName);
    DWORD bytes = 0;
    if (::RegGetValueW(HKEY_CURRENT_USER, AsWide(key), AsWide(name), RRF_RT_REG_SZ, nullptr,
                       nullptr, &bytes) != ERROR_SUCCESS) {
        return false;
    }
    std::u16string buffer(bytes / sizeof(wchar_t) + 1, u'\0');
    bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    if (::RegGetValueW(HKEY_CURRENT_USER, AsWide(key), AsWide(name), RRF_RT_REG_SZ, nullptr,
                       &buffer[0], &bytes) != ERROR_SUCCESS) {
        return false;
    }
    buffer.resize(bytes / sizeof(wchar_t));
    while (!buffer.empty() && buffer.back() == u'\0')
        buffer.pop_back();
    value = std::move(buffer);
    return true;
}

bool WriteUserRegistryString(std::u16string_view subKey, std::u16string_view valueName,
                             std::u16string_view value) {
    const std::u16string key(subKey), name(valueName), data(value);
    HKEY handle = nullptr;
    if (::RegCreateKeyExW(HKEY_CURRENT_USER, AsWide(key), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                          &handle, nullptr) != ERROR_SUCCESS) {
        return false;
    }
    const LONG status = ::RegSetValueExW(handle, AsWide(name), 0, REG_SZ,
                                         reinterpret_cast<const BYTE*>(data.c_str()),
                                         static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(handle);
    return status == ERROR_SUCCESS;
}

bool DeleteUserRegistryValue(std::u16string_view subKey, std::u16string_view valueName) {
    const std::u16string key(subKey), name(valueName);
    return ::RegDeleteKeyValueW(HKEY_CURRENT_USER, AsWide(key), AsWide(name)) == ERROR_SUCCESS;
}

}  // namespace qb::platform
