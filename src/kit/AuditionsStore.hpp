#pragma once
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "kit/RecordingStore.hpp"

namespace tavorin {

// The casting room's takes: "auditions/<character>/<voice>/" under the support
// folder, the WAVs and an index.json. They belong to a voice, never to a production.
struct AuditionsStore {
  struct Take {
    std::string file;  // the WAV's name in the voice's folder
    std::string prompt;
    Clock::time_point date;
    double duration = 0;
    bool operator==(const Take&) const = default;
  };
  struct Index {
    std::vector<Take> takes;
    std::string encoded() const;
    // Throws DocumentError when the text is not an index.
    static Index decode(std::string_view json);
    bool operator==(const Index&) const = default;
  };

  std::filesystem::path folder;

  AuditionsStore(const std::filesystem::path& support, const std::string& character, const std::string& voice);

  // An index that is missing or will not read is an empty one: the takes are a convenience.
  Index read() const;
  // Creates the folder as needed; written whole and atomically.
  void write(const Index& index) const;
  void record(const Take& take) const;

  // "<md5 of the prompt, lower-case hex>-<whole seconds since 1970>.wav": the same words
  // twice, in two different seconds, are two files.
  static std::string filename(std::string_view prompt, Clock::time_point at);
};

}  // namespace tavorin
