#pragma once
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// An upload refused or failed; what() is the sentence the user reads.
struct PublishError : std::runtime_error {
  using std::runtime_error::runtime_error;
  static PublishError noFile(const std::string& path) { return PublishError("no file at " + path); }
  static PublishError http(long code, const std::string& body) {
    return PublishError("YouTube answered " + std::to_string(code) + ": " + body);
  }
  static PublishError noCredentials() {
    return PublishError("YouTube is not connected yet. Add the client file and press Connect.");
  }
  static PublishError cancelled() { return PublishError("upload cancelled"); }
};

// One film on its way to YouTube: the words that go with it and who may watch.
struct PublishRequest {
  enum class Privacy { privateVideo, unlisted, publicVideo };

  // YouTube's own limits, in characters a reader counts.
  struct Limit {
    static constexpr size_t title = 100;
    static constexpr size_t description = 5000;
    static constexpr size_t tagCharacters = 500;
  };

  std::string title;
  std::string description;
  std::vector<std::string> tags;
  Privacy privacy = Privacy::privateVideo;
  std::filesystem::path file;

  // Why YouTube would turn this request away, checked before a byte is sent.
  std::optional<std::string> refusal() const;
};

// "private", "unlisted", "public": the words of the API and of the verbs.
std::string raw(PublishRequest::Privacy privacy);
// "Private", "Unlisted", "Public".
std::string title(PublishRequest::Privacy privacy);
// What the choice means, as the sheet says it.
std::string sentence(PublishRequest::Privacy privacy);
std::optional<PublishRequest::Privacy> parsePrivacy(std::string_view text);

// Characters as a reader counts them: a letter with its accents, or an emoji with its
// joiners and modifiers, is one.
size_t perceivedLength(std::string_view utf8);

namespace Publish {

// The request a production makes by default for `file`, private until someone says otherwise.
PublishRequest request(const Recording& recording, const std::filesystem::path& file,
                       const std::optional<std::string>& takeId);
// Where the film came from, for the end of its description.
std::string provenance(const Recording& recording, const std::optional<std::string>& takeId);
std::string watchURL(const std::string& videoId);

}  // namespace Publish

}  // namespace tavorin
