#include "kit/PublishRequest.hpp"

#include "base/Text.hpp"

namespace tavorin {

namespace {

// Decodes one UTF-8 sequence at `i`; a broken byte counts as a character of its own.
char32_t next(std::string_view s, size_t& i) {
  const auto b = static_cast<unsigned char>(s[i]);
  size_t len = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 1;
  if (i + len > s.size()) len = 1;
  char32_t c = len == 1 ? b : len == 2 ? (b & 0x1f) : len == 3 ? (b & 0x0f) : (b & 0x07);
  for (size_t k = 1; k < len; ++k) {
    const auto cb = static_cast<unsigned char>(s[i + k]);
    if ((cb & 0xc0) != 0x80) {
      len = 1;
      c = b;
      break;
    }
    c = (c << 6) | (cb & 0x3f);
  }
  i += len;
  return c;
}

// Code points that lean on the one before them rather than standing alone.
bool extends(char32_t c) {
  return (c >= 0x0300 && c <= 0x036f) || (c >= 0x1ab0 && c <= 0x1aff) || (c >= 0x1dc0 && c <= 0x1dff) ||
         (c >= 0x20d0 && c <= 0x20ff) || (c >= 0xfe00 && c <= 0xfe0f) || (c >= 0xfe20 && c <= 0xfe2f) ||
         (c >= 0x1f3fb && c <= 0x1f3ff) || (c >= 0xe0020 && c <= 0xe007f) || c == 0x200d;
}

}  // namespace

size_t perceivedLength(std::string_view s) {
  size_t count = 0;
  bool joined = false;
  for (size_t i = 0; i < s.size();) {
    const char32_t c = next(s, i);
    if (c == 0x200d) {
      joined = true;
      continue;
    }
    if (count == 0 || !(extends(c) || joined)) ++count;
    joined = false;
  }
  return count;
}

std::optional<std::string> PublishRequest::refusal() const {
  if (Text::trimSpace(title).empty()) return "a title is needed";
  if (const size_t n = perceivedLength(title); n > Limit::title)
    return "the title is " + std::to_string(n) + " characters; YouTube takes 100";
  if (const size_t n = perceivedLength(description); n > Limit::description)
    return "the description is " + std::to_string(n) + " characters; YouTube takes 5000";
  if (const size_t n = perceivedLength(Text::join(tags, ",")); n > Limit::tagCharacters)
    return "the tags come to " + std::to_string(n) + " characters; YouTube takes 500";
  if (title.find_first_of("<>") != std::string::npos) return "YouTube rejects < and > in a title";
  return std::nullopt;
}

std::string raw(PublishRequest::Privacy p) {
  switch (p) {
    case PublishRequest::Privacy::privateVideo: return "private";
    case PublishRequest::Privacy::unlisted: return "unlisted";
    case PublishRequest::Privacy::publicVideo: return "public";
  }
  return "private";
}

std::string title(PublishRequest::Privacy p) {
  switch (p) {
    case PublishRequest::Privacy::privateVideo: return "Private";
    case PublishRequest::Privacy::unlisted: return "Unlisted";
    case PublishRequest::Privacy::publicVideo: return "Public";
  }
  return "Private";
}

std::string sentence(PublishRequest::Privacy p) {
  switch (p) {
    case PublishRequest::Privacy::privateVideo: return "Only you can watch it.";
    case PublishRequest::Privacy::unlisted: return "Anybody with the link can watch it.";
    case PublishRequest::Privacy::publicVideo: return "Anybody can find it.";
  }
  return "";
}

std::optional<PublishRequest::Privacy> parsePrivacy(std::string_view text) {
  const std::string word = Text::lower(Text::trimSpace(text));
  if (word == "private") return PublishRequest::Privacy::privateVideo;
  if (word == "unlisted") return PublishRequest::Privacy::unlisted;
  if (word == "public") return PublishRequest::Privacy::publicVideo;
  return std::nullopt;
}

namespace Publish {

std::string provenance(const Recording& recording, const std::optional<std::string>& takeId) {
  std::vector<std::string> lines{"Made with Tavorin."};
  if (recording.origin && recording.origin->agent && !recording.origin->agent->empty())
    lines.push_back("Drafted by " + *recording.origin->agent + ".");
  const size_t n = recording.lines().size();
  lines.push_back(std::to_string(n) + " narrated line" + (n == 1 ? "" : "s"));
  if (takeId) lines.push_back("Take " + *takeId);
  return Text::join(lines, "\n");
}

PublishRequest request(const Recording& recording, const std::filesystem::path& file,
                       const std::optional<std::string>& takeId) {
  PublishRequest r;
  r.title = recording.title;
  const std::string own = recording.description ? std::string(Text::trimSpace(*recording.description)) : "";
  const std::string origin = provenance(recording, takeId);
  r.description = own.empty() ? origin : own + "\n\n" + origin;
  r.file = file;
  return r;
}

std::string watchURL(const std::string& videoId) { return "https://www.youtube.com/watch?v=" + videoId; }

}  // namespace Publish

}  // namespace tavorin
