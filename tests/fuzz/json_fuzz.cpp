// Every reader of external text over arbitrary input: none may crash, hang
// or read outside its text. The first byte picks a key from the input's tail.
#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/char_class.h"
#include "foundation/text.h"
#include "run/json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);

    // The same bytes as UTF-8 text and as raw 16-bit units.
    std::u16string strict;
    qb::TryUtf8ToUtf16(bytes, strict);
    const std::u16string lenient = qb::Utf8ToUtf16(bytes);
    std::u16string unitsText;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        unitsText.push_back(static_cast<char16_t>(static_cast<std::uint8_t>(bytes[i]) |
                                                  (static_cast<std::uint8_t>(bytes[i + 1]) << 8)));
    }
    const std::u16string& units = unitsText;
    // Encoding then decoding never grows the text: each unit gives at most one.
    if (qb::Utf8ToUtf16(qb::Utf16ToUtf8(units)).size() > units.size()) __builtin_trap();

    const std::size_t keyLength = data[0] % 8;
    for (const std::u16string* text : {&lenient, &units}) {
        const std::u16string key =
            text->substr(text->size() > keyLength ? text->size() - keyLength : 0);
        for (const std::u16string& k : {key, std::u16string(u"a"), std::u16string()}) {
            qb::ReadJsonString(*text, k);
            qb::ReadJsonBool(*text, k);
            qb::ReadJsonNumber(*text, k);
            qb::ReadJsonStringArray(*text, k);
            const std::u16string object = qb::ReadJsonObjectText(*text, k);
            if (!object.empty() && (object.front() != u'{' || object.back() != u'}'))
                __builtin_trap();
            qb::ReadStoreString(*text, k);
            qb::ReadStoreBool(*text, k);
        }
        std::int32_t color = 0;
        qb::ParseHexColor(*text, color);
        qb::JsonQuote(*text);
        qb::ToLower(*text);
    }
    return 0;
}
