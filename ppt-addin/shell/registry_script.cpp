#include "shell/registry_script.h"

#include "foundation/text.h"

namespace qb {

namespace {

class Parser {
  public:
    explicit Parser(std::u16string_view text) : text_(text) {}

    bool Script(std::vector<RegistryKey>& roots, std::u16string& error) {
        std::u16string word;
        while (SkipSpace()) {
            if (!Word(word) || (word != u"HKCU" && word != u"HKEY_CURRENT_USER")) {
                return Fail(u"a root of HKCU", error);
            }
            if (!Expect(u'{')) return Fail(u"'{' after the root", error);
            if (!Body(roots, nullptr, error)) return false;
        }
        return true;
    }

  private:
    // Keys and values up to the closing brace.
    bool Body(std::vector<RegistryKey>& keys, std::vector<RegistryValue>* values,
              std::u16string& error) {
        for (;;) {
            if (!SkipSpace()) return Fail(u"'}'", error);
            if (text_[pos_] == u'}') {
                ++pos_;
                return true;
            }
            std::u16string word;
            if (!Word(word)) return Fail(u"a key name", error);
            if (word == u"val") {
                if (!values) return Fail(u"a key, not a value, at the root", error);
                RegistryValue value;
                if (!Word(value.name)) return Fail(u"a value name", error);
                if (!Expect(u'=') || !Value(value)) return Fail(u"= s '...' or = d '...'", error);
                values->push_back(std::move(value));
                continue;
            }
            RegistryKey key;
            if (word == u"NoRemove" || word == u"ForceRemove") {
                key.removal =
                    word == u"NoRemove" ? RegistryKey::Removal::Never : RegistryKey::Removal::Force;
                if (!Word(word)) return Fail(u"a key name", error);
            }
            key.name = std::move(word);
            SkipSpace();
            if (pos_ < text_.size() && text_[pos_] == u'=') {
                ++pos_;
                RegistryValue value;
                if (!Value(value)) return Fail(u"s '...' or d '...'", error);
                key.values.push_back(std::move(value));
                SkipSpace();
            }
            if (pos_ < text_.size() && text_[pos_] == u'{') {
                ++pos_;
                if (!Body(key.keys, &key.values, error)) return false;
            }
            keys.push_back(std::move(key));
        }
    }

    bool Value(RegistryValue& value) {
        std::u16string kind, content;
        if (!Word(kind) || (kind != u"s" && kind != u"d") || !Quoted(content)) return false;
        value.dword = kind == u"d";
        if (!value.dword) {
            value.text = std::move(content);
            return true;
        }
        if (content.empty() || content.size() > 10) return false;
        std::uint64_t n = 0;
        for (char16_t c : content) {
            if (c < u'0' || c > u'9') return false;
            n = n * 10 + static_cast<std::uint64_t>(c - u'0');
        }
        if (n > 0xFFFFFFFFull) return false;
        value.number = static_cast<std::uint32_t>(n);
        return true;
    }

    // A bare word, or a quoted one.
    bool Word(std::u16string& out) {
        if (!SkipSpace()) return false;
        if (text_[pos_] == u'\'') return Quoted(out);
        const std::size_t start = pos_;
        // A class id names a key: "{...}" is a word, where a lone brace opens a block.
        if (text_[pos_] == u'{' && pos_ + 1 < text_.size() && !IsSpace(text_[pos_ + 1])) {
            const std::size_t close = text_.find(u'}', pos_);
            if (close == std::u16string_view::npos) return false;
            pos_ = close + 1;
            out.assign(text_.substr(start, pos_ - start));
            return true;
        }
        while (pos_ < text_.size() && !IsSpace(text_[pos_]) && text_[pos_] != u'{' &&
               text_[pos_] != u'}' && text_[pos_] != u'=' && text_[pos_] != u'\'') {
            ++pos_;
        }
        out.assign(text_.substr(start, pos_ - start));
        return !out.empty();
    }

    // '...' with '' standing for one quote.
    bool Quoted(std::u16string& out) {
        if (!SkipSpace() || text_[pos_] != u'\'') return false;
        out.clear();
        for (++pos_; pos_ < text_.size(); ++pos_) {
            if (text_[pos_] != u'\'') {
                out += text_[pos_];
            } else if (pos_ + 1 < text_.size() && text_[pos_ + 1] == u'\'') {
                out += u'\'';
                ++pos_;
            } else {
                ++pos_;
                return true;
            }
        }
        return false;
    }

    bool Expect(char16_t c) {
        if (!SkipSpace() || text_[pos_] != c) return false;
        ++pos_;
        return true;
    }

    // False at the end of the text.
    bool SkipSpace() {
        while (pos_ < text_.size() && IsSpace(text_[pos_]))
            ++pos_;
        return pos_ < text_.size();
    }

    static bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

    bool Fail(const char16_t* wanted, std::u16string& error) const {
        std::size_t line = 1;
        for (std::size_t i = 0; i < pos_ && i < text_.size(); ++i)
            line += text_[i] == u'\n';
        error = u"line " + DecimalText(static_cast<long long>(line)) + u": expected " + wanted;
        return false;
    }

    std::u16string_view text_;
    std::size_t pos_ = 0;
};

std::u16string Join(const std::u16string& parent, const std::u16string& name) {
    return parent.empty() ? name : parent + u"\\" + name;
}

HRESULT RegisterKey(const RegistryKey& key, const std::u16string& parent, RegistryWriter& writer) {
    const std::u16string path = Join(parent, key.name);
    HRESULT hr = S_OK;
    if (key.removal == RegistryKey::Removal::Force) hr = writer.DeleteTree(path);
    if (SUCCEEDED(hr)) hr = writer.CreateKey(path);
    for (const RegistryValue& value : key.values) {
        if (FAILED(hr)) break;
        hr = writer.SetValue(path, value);
    }
    for (const RegistryKey& child : key.keys) {
        if (FAILED(hr)) break;
        hr = RegisterKey(child, path, writer);
    }
    return hr;
}

void Keep(HRESULT& first, HRESULT hr) {
    if (SUCCEEDED(first) && FAILED(hr)) first = hr;
}

HRESULT UnregisterKey(const RegistryKey& key, const std::u16string& parent,
                      RegistryWriter& writer) {
    const std::u16string path = Join(parent, key.name);
    if (key.removal == RegistryKey::Removal::Force) return writer.DeleteTree(path);
    HRESULT first = S_OK;
    for (const RegistryKey& child : key.keys)
        Keep(first, UnregisterKey(child, path, writer));
    // The key's own default value is ours too: left behind, it would keep
    // the key from counting as empty.
    for (const RegistryValue& value : key.values)
        Keep(first, writer.DeleteValue(path, value.name));
    if (key.removal == RegistryKey::Removal::WhenEmpty && writer.IsEmptyKey(path)) {
        Keep(first, writer.DeleteTree(path));
    }
    return first;
}

}  // namespace

bool ParseRegistryScript(std::u16string_view text, std::u16string_view modulePath,
                         std::vector<RegistryKey>& roots, std::u16string& error) {
    static constexpr std::u16string_view kModule = u"%MODULE%";
    std::u16string expanded;
    for (std::size_t from = 0;;) {
        const std::size_t at = text.find(kModule, from);
        expanded.append(text.substr(from, at - from));
        if (at == std::u16string_view::npos) break;
        // Inside '...' a quote is doubled, so a profile named O'Brien stays whole.
        for (char16_t c : modulePath) {
            expanded += c;
            if (c == u'\'') expanded += c;
        }
        from = at + kModule.size();
    }
    roots.clear();
    error.clear();
    return Parser(expanded).Script(roots, error);
}

HRESULT RegisterScript(const std::vector<RegistryKey>& roots, RegistryWriter& writer) {
    for (const RegistryKey& key : roots) {
        const HRESULT hr = RegisterKey(key, u"", writer);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT UnregisterScript(const std::vector<RegistryKey>& roots, RegistryWriter& writer) {
    HRESULT first = S_OK;
    for (const RegistryKey& key : roots)
        Keep(first, UnregisterKey(key, u"", writer));
    return first;
}

}  // namespace qb
