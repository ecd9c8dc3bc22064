#include "speech/Utf8.hpp"

namespace tavorin::utf8 {

std::u32string decode(std::string_view s) {
    std::u32string out;
    out.reserve(s.size());
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const std::size_t n = s.size();
    std::size_t i = 0;
    while (i < n) {
        const unsigned char b = p[i];
        if (b < 0x80) { out.push_back(b); ++i; continue; }
        int len = 0;
        char32_t cp = 0, min = 0;
        if ((b & 0xE0) == 0xC0) { len = 2; cp = b & 0x1F; min = 0x80; }
        else if ((b & 0xF0) == 0xE0) { len = 3; cp = b & 0x0F; min = 0x800; }
        else if ((b & 0xF8) == 0xF0) { len = 4; cp = b & 0x07; min = 0x10000; }
        bool ok = len > 0 && i + static_cast<std::size_t>(len) <= n;
        for (int k = 1; ok && k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) ok = false;
            else cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        if (!ok || cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            out.push_back(0xFFFD);
            ++i;
            continue;
        }
        out.push_back(cp);
        i += static_cast<std::size_t>(len);
    }
    return out;
}

std::string encode(char32_t c) {
    std::string out;
    if (c < 0x80) out += static_cast<char>(c);
    else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

std::string encode(std::u32string_view s) {
    std::string out;
    out.reserve(s.size());
    for (char32_t c : s) out += encode(c);
    return out;
}

std::size_t length(std::string_view s) {
    std::size_t n = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

static std::size_t lastStart(std::string_view s) {
    std::size_t i = s.size();
    while (i > 0) {
        --i;
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return i;
    }
    return 0;
}

char32_t last(std::string_view s) {
    if (s.empty()) return 0;
    const auto d = decode(s.substr(lastStart(s)));
    return d.empty() ? 0 : d.back();
}

std::string dropLast(std::string_view s) { return s.empty() ? std::string() : std::string(s.substr(0, lastStart(s))); }

bool contains(std::string_view set, char32_t c) {
    const std::string e = encode(c);
    return !e.empty() && set.find(e) != std::string_view::npos;
}

} // namespace tavorin::utf8
