#include "speech/TextCase.hpp"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "speech/Utf8.hpp"

namespace tavorin::text {

namespace {
bool ascii(std::string_view s) {
    for (unsigned char c : s)
        if (c >= 0x80) return false;
    return true;
}
} // namespace

std::string lower(std::string_view s) {
    if (ascii(s)) {
        std::string out(s);
        for (auto& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return out;
    }
    std::u32string u = utf8::decode(s);
    for (auto& c : u) c = static_cast<char32_t>(u_tolower(static_cast<UChar32>(c)));
    return utf8::encode(u);
}

std::string upper(std::string_view s) {
    if (ascii(s)) {
        std::string out(s);
        for (auto& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return out;
    }
    std::u32string u = utf8::decode(s);
    for (auto& c : u) c = static_cast<char32_t>(u_toupper(static_cast<UChar32>(c)));
    return utf8::encode(u);
}

bool isLetter(char32_t c) { return c < 0x80 ? std::isalpha(static_cast<int>(c)) != 0 : u_isalpha(static_cast<UChar32>(c)); }
bool isDigit(char32_t c) { return c < 0x80 ? (c >= '0' && c <= '9') : u_isdigit(static_cast<UChar32>(c)); }
bool isLower(char32_t c) { return c < 0x80 ? (c >= 'a' && c <= 'z') : u_islower(static_cast<UChar32>(c)); }
bool isUpper(char32_t c) { return c < 0x80 ? (c >= 'A' && c <= 'Z') : u_isupper(static_cast<UChar32>(c)); }

bool allLetters(std::string_view s) {
    if (s.empty()) return false;
    for (char32_t c : utf8::decode(s))
        if (!isLetter(c)) return false;
    return true;
}

std::string normalizeWord(std::string_view s) {
    if (ascii(s)) return std::string(s);
    std::u32string u = utf8::decode(s);
    for (auto& c : u)
        if (c == U'’' || c == U'‘') c = U'\'';
    const std::string straight = utf8::encode(u);
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfkc = icu::Normalizer2::getNFKCInstance(status);
    std::string out;
    if (U_SUCCESS(status)) {
        icu::UnicodeString normal = nfkc->normalize(icu::UnicodeString::fromUTF8(straight), status);
        if (U_SUCCESS(status)) normal.toUTF8String(out);
    }
    if (out.empty()) out = straight;
    u = utf8::decode(out);
    for (auto& c : u)
        if (c >= 0x80 && u_isdigit(static_cast<UChar32>(c))) {
            const int d = u_charDigitValue(static_cast<UChar32>(c));
            if (d >= 0 && d <= 9) c = static_cast<char32_t>('0' + d);
        }
    return utf8::encode(u);
}

} // namespace tavorin::text
