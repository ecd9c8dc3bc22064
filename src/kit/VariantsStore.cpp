#include "kit/VariantsStore.hpp"

#include "base/IsoDate.hpp"
#include "base/AtomicFile.hpp"

#include <openssl/evp.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include "base/Hex.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* const indexName = "audio/variants.json";

[[noreturn]] void bad(const std::string& what) { throw DocumentError(std::string(indexName) + " " + what + "."); }

const json* member(const json& j, const char* key, bool required) {
  auto it = j.find(key);
  if (it == j.end() || it->is_null()) {
    if (required) bad(std::string("has a variant without \"") + key + "\"");
    return nullptr;
  }
  return &*it;
}

std::optional<std::string> optText(const json& j, const char* key) {
  const json* v = member(j, key, false);
  if (!v) return std::nullopt;
  if (!v->is_string()) bad(std::string("has a variant whose \"") + key + "\" is not text");
  return v->get<std::string>();
}

std::optional<double> optNumber(const json& j, const char* key) {
  const json* v = member(j, key, false);
  if (!v) return std::nullopt;
  if (!v->is_number()) bad(std::string("has a variant whose \"") + key + "\" is not a number");
  return v->get<double>();
}

Variant decodeVariant(const json& j) {
  if (!j.is_object()) bad("holds a variant that is not an object");
  Variant v;
  const json* number = member(j, "number", true);
  if (!number->is_number_integer()) bad("has a variant whose \"number\" is not a whole number");
  v.number = number->get<int>();
  const json* file = member(j, "file", true);
  const json* text = member(j, "text", true);
  if (!file->is_string() || !text->is_string()) bad("has a variant whose \"file\" or \"text\" is not text");
  v.file = file->get<std::string>();
  v.text = text->get<std::string>();
  const json* seconds = member(j, "seconds", true);
  if (!seconds->is_number()) bad("has a variant whose \"seconds\" is not a number");
  v.seconds = seconds->get<double>();
  const json* made = member(j, "made", true);
  auto when = made->is_string() ? IsoDate::parse(made->get<std::string>()) : std::nullopt;
  if (!when) bad("has a variant whose \"made\" is not an ISO 8601 date");
  v.made = *when;
  v.character = optText(j, "character");
  v.voice = optText(j, "voice");
  v.offset = optNumber(j, "offset");
  v.group = optText(j, "group");
  v.split = optText(j, "split");
  v.from = optText(j, "from");
  if (const json* imported = member(j, "imported", false)) {
    if (!imported->is_boolean()) bad("has a variant whose \"imported\" is not true or false");
    v.imported = imported->get<bool>();
  }
  return v;
}

json encodeVariant(const Variant& v) {
  json j = {{"number", v.number},
            {"file", v.file},
            {"text", v.text},
            {"seconds", v.seconds},
            {"made", IsoDate::format(v.made)}};
  if (v.character) j["character"] = *v.character;
  if (v.voice) j["voice"] = *v.voice;
  if (v.offset) j["offset"] = *v.offset;
  if (v.group) j["group"] = *v.group;
  if (v.split) j["split"] = *v.split;
  if (v.imported) j["imported"] = *v.imported;
  if (v.from) j["from"] = *v.from;
  return j;
}

std::map<std::string, std::vector<Variant>> decodeTable(const json& j, const char* key) {
  auto it = j.find(key);
  if (it == j.end() || !it->is_object()) bad(std::string("has no \"") + key + "\" object");
  std::map<std::string, std::vector<Variant>> out;
  for (const auto& [id, list] : it->items()) {
    if (!list.is_array()) bad("lists the variants of '" + id + "' as something other than a list");
    auto& variants = out[id];
    for (const auto& v : list) variants.push_back(decodeVariant(v));
  }
  return out;
}

json encodeTable(const std::map<std::string, std::vector<Variant>>& table) {
  json j = json::object();
  for (const auto& [id, list] : table) {
    json a = json::array();
    for (const auto& v : list) a.push_back(encodeVariant(v));
    j[id] = std::move(a);
  }
  return j;
}

std::string md5Hex(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) != 1)
    throw std::runtime_error("MD5 is not available in this build of OpenSSL");
  return hexDigits(digest, length);
}

}  // namespace

bool VariantsStore::Index::wasRemoved(const std::string& file, const std::string& id) const {
  auto it = removed.find(id);
  if (it == removed.end()) return false;
  return std::any_of(it->second.begin(), it->second.end(), [&](const Variant& v) { return v.file == file; });
}

int VariantsStore::Index::nextNumber(const std::string& id, const std::vector<Variant>& variants) const {
  int highest = 0;
  if (auto it = removed.find(id); it != removed.end())
    for (const auto& v : it->second) highest = std::max(highest, v.number);
  for (const auto& v : variants) highest = std::max(highest, v.number);
  return highest + 1;
}

std::string VariantsStore::Index::encoded() const {
  json j = {{"lines", encodeTable(lines)}, {"removed", encodeTable(removed)}};
  return j.dump(2) + "\n";
}

VariantsStore::Index VariantsStore::Index::decode(std::string_view text) {
  json j;
  try {
    j = json::parse(text);
  } catch (const json::parse_error&) {
    bad("is not valid JSON");
  }
  if (!j.is_object()) bad("is not a JSON object");
  return Index{decodeTable(j, "lines"), decodeTable(j, "removed")};
}

bool VariantsStore::exists() const {
  std::error_code ec;
  return fs::exists(url, ec);
}

VariantsStore::Index VariantsStore::read() const { return Index::decode(RecordingStore::readText(url)); }

void VariantsStore::write(const Index& index) const {
  std::error_code ec;
  fs::create_directories(url.parent_path(), ec);
  if (ec) throw std::runtime_error("could not make " + url.parent_path().string() + ": " + ec.message());
  AtomicFile::write(url, index.encoded());
}

VariantsStore::Loaded VariantsStore::load(const std::function<Index()>& rebuild, Clock::time_point now) const {
  auto rebuildAndWrite = [&](Loaded& loaded) {
    loaded.index = rebuild();
    try {
      write(loaded.index);
    } catch (const std::exception& e) {
      loaded.note = std::string("audio/variants.json did not save: ") + e.what();
    }
  };

  Loaded loaded;
  if (!exists()) {
    rebuildAndWrite(loaded);
    return loaded;
  }
  std::string error;
  try {
    loaded.index = read();
    return loaded;
  } catch (const std::exception& e) {
    error = e.what();
  }

  const long unix = std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
  std::string aside = "variants-unreadable-" + std::to_string(unix) + ".json";
  std::error_code ec;
  // A second bad file within the same second must not bury the first.
  for (int n = 2; fs::exists(url.parent_path() / aside, ec); ++n)
    aside = "variants-unreadable-" + std::to_string(unix) + "-" + std::to_string(n) + ".json";
  fs::rename(url, url.parent_path() / aside, ec);
  if (ec) {
    // The bad file stays where it is, so the listing is held in memory only.
    loaded.index = rebuild();
    loaded.note = "audio/variants.json would not read or move aside: " + ec.message();
    return loaded;
  }
  rebuildAndWrite(loaded);
  const std::string moved =
      "audio/variants.json would not read (" + error + "); moved it to " + aside + " and listed the audio again";
  loaded.note = loaded.note ? moved + "; " + *loaded.note : moved;
  return loaded;
}

std::string VariantsStore::filename(const std::string& id, const std::string& text,
                                    const std::optional<std::string>& character,
                                    const std::optional<std::string>& voice, const std::string& salt) {
  const std::string sep(1, '\x01');
  const std::string key = text + sep + character.value_or("") + sep + voice.value_or("") + sep + salt;
  return id + "-" + md5Hex(key).substr(0, 10) + ".wav";
}

bool VariantsStore::isRender(std::string_view name, std::string_view id) {
  if (name.size() != id.size() + 1 + 10 + 4) return false;
  if (name.substr(0, id.size()) != id || name[id.size()] != '-' || name.substr(name.size() - 4) != ".wav")
    return false;
  return std::all_of(name.begin() + id.size() + 1, name.end() - 4,
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); });
}

const std::vector<std::string>& VariantsStore::legacySalts() {
  static const std::vector<std::string> salts = [] {
    std::vector<std::string> s{""};
    for (int n = 1; n <= 24; ++n) s.push_back(std::to_string(n));
    for (int n = 1; n <= 8; ++n) s.push_back("alt" + std::to_string(n));
    return s;
  }();
  return salts;
}

std::optional<VariantsStore::Attribution> VariantsStore::attribute(const std::string& name, const std::string& id,
                                                                   const std::vector<std::string>& texts,
                                                                   const std::vector<Cast>& casts) {
  if (!isRender(name, id)) return std::nullopt;
  for (const auto& text : texts)
    for (const auto& [character, voice] : casts)
      for (const auto& salt : legacySalts())
        if (filename(id, text, character, voice, salt) == name) return Attribution{text, character, voice, salt};
  return std::nullopt;
}

}  // namespace tavorin
