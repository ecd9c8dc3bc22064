#pragma once
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "voice/VoiceDriver.hpp"
#include "voice/local/LocalServer.hpp"

namespace tavorin {

// A render failure of the local server; `what()` names the server and what it said.
struct LocalDriverFailure : std::runtime_error {
  enum class Kind { unreachable, refused, notSpeech, failed, silent, cannotWrite };
  LocalDriverFailure(Kind kind, std::string text) : std::runtime_error(std::move(text)), kind(kind) {}
  Kind kind;

  static LocalDriverFailure unreachable(const std::string& url);
  static LocalDriverFailure refused(const std::string& url, long status);
  static LocalDriverFailure notSpeech(const std::string& url, long status);
  static LocalDriverFailure failed(const std::string& url, long status, const std::string& reason);
  static LocalDriverFailure silent(const std::string& url);
  static LocalDriverFailure cannotWrite(const std::filesystem::path& file);
};

// Any speech server that speaks OpenAI's v1 audio API, found through the address
// in local-voice.json. Servers have more or less of the API: each step tolerates a
// partial one, and a line that could be rendered is rendered.
class LocalDriver final : public VoiceDriver {
 public:
  static constexpr const char* defaultVoice = "default";
  // Far above a long group's WAV; a server streaming without end is cut off here.
  static constexpr size_t defaultAudioLimit = 512u << 20;

  explicit LocalDriver(std::filesystem::path file, double probeTimeout = 3.0, double renderTimeout = 300.0,
                       size_t audioLimit = defaultAudioLimit);

  std::string name() const override { return "local"; }
  DriverHealth health() override;
  std::vector<DriverCharacter> characters() override;
  void refresh() override;
  RenderResult render(const std::string& text, const std::string& character, const std::string& voice,
                      const std::filesystem::path& to) override;

  // Read from the file on every call: a render never uses an old address.
  LocalServer server() const { return LocalServer::load(file_); }
  // Saves the record, then forgets the listing. Throws, keeping the listing, on failure.
  void use(const LocalServer& server);
  const std::filesystem::path& file() const { return file_; }

  // The sentence of an error body: its error.message, else its first 200 bytes.
  static std::string reason(const std::string& body);

 private:
  struct Listing {
    std::vector<DriverCharacter> characters;
    DriverHealth health;
  };
  Listing listing();
  Listing ask(const LocalServer& server) const;

  std::filesystem::path file_;
  double probeTimeout_, renderTimeout_;
  size_t audioLimit_;
  std::mutex lock_;
  std::optional<Listing> listed_;
};

}  // namespace tavorin
