#pragma once
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/RecordingStore.hpp"
#include "kit/Variant.hpp"

namespace tavorin {

// audio/variants.json: every audio every line has had.
struct VariantsStore {
  struct Index {
    std::map<std::string, std::vector<Variant>> lines;
    // Taken off a line by the user; kept so their numbers and files are not given out again.
    std::map<std::string, std::vector<Variant>> removed;

    bool wasRemoved(const std::string& file, const std::string& id) const;
    // One above the highest number among removed[id] and `variants`; 1 when there are none.
    int nextNumber(const std::string& id, const std::vector<Variant>& variants) const;

    std::string encoded() const;
    // Throws DocumentError when a required key is missing or of the wrong type.
    static Index decode(std::string_view json);

    bool operator==(const Index&) const = default;
  };

  // What an unlisted render was made from.
  struct Attribution {
    std::string text;
    std::optional<std::string> character;
    std::optional<std::string> voice;
    std::string salt;
    bool operator==(const Attribution&) const = default;
  };

  // The index as the opening of a production found it, with the event to post, if any.
  struct Loaded {
    Index index;
    std::optional<std::string> note;
  };

  using Cast = std::pair<std::optional<std::string>, std::optional<std::string>>;  // character, voice

  std::filesystem::path url;

  explicit VariantsStore(const std::filesystem::path& recordingDir) : url(recordingDir / "audio" / "variants.json") {}

  bool exists() const;
  Index read() const;
  // Creates audio/ as needed and replaces the file whole.
  void write(const Index& index) const;

  // Reads the index for an opening production. With no file, `rebuild` lists the audio
  // and the result is written. A file that will not read is moved aside to
  // variants-unreadable-<unix seconds>.json, never overwritten, and rebuilt the same way.
  Loaded load(const std::function<Index()>& rebuild, Clock::time_point now = Clock::now()) const;

  // "<id>-<first 10 hex digits of MD5(text U+0001 character U+0001 voice U+0001 salt)>.wav"
  static std::string filename(const std::string& id, const std::string& text,
                              const std::optional<std::string>& character, const std::optional<std::string>& voice,
                              const std::string& salt);
  static bool isRender(std::string_view name, std::string_view id);
  // "", "1" ... "24", "alt1" ... "alt8": the salts earlier renders used.
  static const std::vector<std::string>& legacySalts();
  static std::optional<Attribution> attribute(const std::string& name, const std::string& id,
                                              const std::vector<std::string>& texts, const std::vector<Cast>& casts);
};

}  // namespace tavorin
