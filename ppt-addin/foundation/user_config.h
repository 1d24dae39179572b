// The user's two settings, the task pane's width and the display language,
// in one small JSON file. Reading finds one key by plain text search; saving
// rewrites only that key's value, so whatever else a person or a later
// version put into the file survives. The file is replaced in one step.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

inline constexpr std::int32_t kDefaultPaneWidthPt = 520;
inline constexpr std::uint32_t kErrorBadPathname = 161;  // ERROR_BAD_PATHNAME

// <local application data>\Quillbrook (the roaming folder when that is
// missing), created on the way; empty when neither exists.
std::u16string GetConfigDirectory();
std::u16string GetConfigPath();

std::int32_t ReadPaneWidth(bool& found);
bool SavePaneWidth(std::int32_t width, std::uint32_t& errorCode);
// True only for a readable value that is one of the supported codes.
bool LoadUiLanguage(std::u16string& code);
bool SaveUiLanguage(std::u16string_view code);

// The primitives, on the file's UTF-8 text.
bool ReadFileBytes(const std::u16string& path, std::string& bytes);
bool WriteFileAtomically(const std::u16string& path, std::string_view bytes);
bool ReadJsonInt(std::string_view text, std::string_view key, std::int32_t& value);
bool ReplaceOrAddJsonInt(std::string_view text, std::string_view key, std::int32_t value,
                         std::string& result);
bool ReadUiLangValue(std::string_view text, std::string& value);
bool ReplaceOrAddUiLang(std::string_view text, std::string_view value, std::string& result);

}  // namespace qb
