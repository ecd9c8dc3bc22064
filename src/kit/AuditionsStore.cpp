#include "kit/AuditionsStore.hpp"

#include <openssl/evp.h>

#include <nlohmann/json.hpp>

#include "base/AtomicFile.hpp"
#include "base/Hex.hpp"
#include "base/IsoDate.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// Names a character or a voice may carry that must not become a path of their own.
std::string folderName(const std::string& name) {
  std::string out;
  for (char c : name) out += (c == '/' || c == '\0') ? '_' : c;
  if (out.empty() || out == "." || out == "..") out = "_" + out;
  return out;
}

}  // namespace

AuditionsStore::AuditionsStore(const fs::path& support, const std::string& character, const std::string& voice)
    : folder(support / "auditions" / folderName(character) / folderName(voice)) {}

std::string AuditionsStore::Index::encoded() const {
  json takesJson = json::array();
  for (const auto& t : takes)
    takesJson.push_back({{"file", t.file}, {"prompt", t.prompt}, {"date", IsoDate::format(t.date)}, {"duration", t.duration}});
  return json{{"takes", takesJson}}.dump(2);
}

AuditionsStore::Index AuditionsStore::Index::decode(std::string_view text) {
  Index index;
  try {
    const json j = json::parse(text);
    for (const auto& t : j.at("takes")) {
      Take take;
      take.file = t.at("file").get<std::string>();
      take.prompt = t.at("prompt").get<std::string>();
      const auto date = IsoDate::parse(t.at("date").get<std::string>());
      if (!date) throw DocumentError("an audition take has a date that does not read");
      take.date = *date;
      take.duration = t.at("duration").get<double>();
      index.takes.push_back(std::move(take));
    }
  } catch (const json::exception& e) {
    throw DocumentError(std::string("the auditions index does not read: ") + e.what());
  }
  return index;
}

AuditionsStore::Index AuditionsStore::read() const {
  try {
    return Index::decode(RecordingStore::readText(folder / "index.json"));
  } catch (const std::exception&) {
    return {};
  }
}

void AuditionsStore::write(const Index& index) const {
  fs::create_directories(folder);
  AtomicFile::write(folder / "index.json", index.encoded());
}

void AuditionsStore::record(const Take& take) const {
  Index index = read();
  index.takes.push_back(take);
  write(index);
}

std::string AuditionsStore::filename(std::string_view prompt, Clock::time_point at) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(prompt.data(), prompt.size(), digest, &length, EVP_md5(), nullptr) != 1)
    throw std::runtime_error("MD5 is not available in this build of OpenSSL");
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(at.time_since_epoch()).count();
  return hexDigits(digest, length) + "-" + std::to_string(seconds) + ".wav";
}

}  // namespace tavorin
