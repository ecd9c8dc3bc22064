#include "kit/Slug.hpp"

#include <locale>
#include <vector>

namespace tavorin {

namespace {

// Letters, numbers and case beyond ASCII come from the C library's Unicode tables.
const std::ctype<wchar_t>& unicodeCtype() {
  static const std::locale locale = [] {
    try {
      return std::locale("C.UTF-8");
    } catch (const std::runtime_error&) {
      return std::locale::classic();
    }
  }();
  return std::use_facet<std::ctype<wchar_t>>(locale);
}

// One character as people see it: a base code point and the marks that sit on it.
struct Glyph {
  char32_t base;
  std::u32string marks;
};

bool isCombiningMark(char32_t c) {
  return (c >= 0x0300 && c <= 0x036F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x1DC0 && c <= 0x1DFF) ||
         (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE20 && c <= 0xFE2F);
}

// Malformed bytes each stand for U+FFFD, which is not a letter and so becomes a dash.
std::vector<Glyph> glyphs(std::string_view s) {
  std::vector<Glyph> out;
  for (size_t i = 0; i < s.size();) {
    unsigned char b = s[i];
    char32_t c = 0xFFFD;
    size_t len = 1;
    if (b < 0x80) {
      c = b;
    } else if ((b >> 5) == 0x6 || (b >> 4) == 0xE || (b >> 3) == 0x1E) {
      len = (b >> 5) == 0x6 ? 2 : (b >> 4) == 0xE ? 3 : 4;
      char32_t v = b & (len == 2 ? 0x1F : len == 3 ? 0x0F : 0x07);
      bool ok = i + len <= s.size();
      for (size_t k = 1; ok && k < len; ++k) {
        unsigned char cont = s[i + k];
        if ((cont & 0xC0) != 0x80) ok = false;
        v = (v << 6) | (cont & 0x3F);
      }
      if (ok) c = v;
      else len = 1;
    }
    i += len;
    if (isCombiningMark(c) && !out.empty()) out.back().marks.push_back(c);
    else out.push_back({c, {}});
  }
  return out;
}

void appendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
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
}

std::vector<Glyph> cleaned(std::string_view text) {
  const auto& ct = unicodeCtype();
  std::vector<Glyph> out;
  for (Glyph g : glyphs(text)) {
    auto w = static_cast<wchar_t>(g.base);
    bool keep = g.base < 0x80 ? ((g.base >= 'a' && g.base <= 'z') || (g.base >= 'A' && g.base <= 'Z') ||
                                 (g.base >= '0' && g.base <= '9'))
                              : ct.is(std::ctype_base::alnum, w);
    if (keep) {
      out.push_back({static_cast<char32_t>(ct.tolower(w)), g.marks});
    } else if (!out.empty() && out.back().base != U'-') {
      out.push_back({U'-', {}});
    }
  }
  if (!out.empty() && out.back().base == U'-') out.pop_back();
  return out;
}

std::string utf8(const std::vector<Glyph>& gs, size_t limit) {
  std::string out;
  for (size_t i = 0; i < gs.size() && i < limit; ++i) {
    appendUtf8(out, gs[i].base);
    for (char32_t m : gs[i].marks) appendUtf8(out, m);
  }
  return out;
}

}  // namespace

std::string Slug::clean(std::string_view text) {
  auto gs = cleaned(text);
  return utf8(gs, gs.size());
}

std::string Slug::make(std::string_view text) {
  std::string s = utf8(cleaned(text), 64);
  return s.empty() ? "untitled" : s;
}

bool Slug::isPlain(std::string_view name) {
  return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos &&
         name.find('\\') == std::string_view::npos;
}

}  // namespace tavorin
