// The add-in's registration scripts: a small text form of registry keys
// and values under HKEY_CURRENT_USER, kept as resources, and the two walks
// that register and remove them. The walks go through RegistryWriter, so
// that the same rules run over the real registry and over a map in tests.
//
//   HKCU { NoRemove Software { ForceRemove Name = s 'default' {
//       val Value = s 'text'   val Count = d '3'   Sub } } }
//
// ForceRemove: the key is replaced at registration and removed with its
// tree. NoRemove: the key stays; only what the script names below it goes.
// Neither: the key goes when nothing else is left in it, so shared parents
// that the registration created leave no trace.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/hresult.h"

namespace qb {

struct RegistryValue {
    std::u16string name;  // empty: the key's default value
    bool dword = false;
    std::u16string text;
    std::uint32_t number = 0;
};

struct RegistryKey {
    enum class Removal { WhenEmpty, Force, Never };
    std::u16string name;
    Removal removal = Removal::WhenEmpty;
    std::vector<RegistryValue> values;
    std::vector<RegistryKey> keys;
};

// Parses a script with every %MODULE% replaced by `modulePath`. The roots
// are the keys below HKCU. False with a message naming the place on error.
bool ParseRegistryScript(std::u16string_view text, std::u16string_view modulePath,
                         std::vector<RegistryKey>& roots, std::u16string& error);

// Key paths are relative to HKEY_CURRENT_USER, parts joined by '\'.
class RegistryWriter {
  public:
    virtual ~RegistryWriter() = default;
    virtual HRESULT CreateKey(const std::u16string& path) = 0;
    virtual HRESULT SetValue(const std::u16string& path, const RegistryValue& value) = 0;
    // Success when the key or value is not there.
    virtual HRESULT DeleteTree(const std::u16string& path) = 0;
    virtual HRESULT DeleteValue(const std::u16string& path, const std::u16string& name) = 0;
    // True when the key exists and holds no subkey and no value.
    virtual bool IsEmptyKey(const std::u16string& path) = 0;
};

// The first failure stops the walk and is the result.
HRESULT RegisterScript(const std::vector<RegistryKey>& roots, RegistryWriter& writer);
// Removal goes on past failures; the first one is the result.
HRESULT UnregisterScript(const std::vector<RegistryKey>& roots, RegistryWriter& writer);

}  // namespace qb
