#include "voice/local/LocalDriver.hpp"

#include <curl/curl.h>

#include <cmath>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>

#include "voice/AudioFile.hpp"

namespace tavorin {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// Listings are small; a server that sends more is not answering a listing.
constexpr size_t listingLimit = 4u << 20;

struct Reply {
  std::optional<std::string> data;  // none on a transport failure
  std::optional<long> status;
  bool overLimit = false;
};

struct Sink {
  std::string body;
  size_t limit = 0;
  bool overLimit = false;
};

size_t collect(char* bytes, size_t size, size_t count, void* user) {
  auto* sink = static_cast<Sink*>(user);
  size_t n = size * count;
  if (sink->body.size() + n > sink->limit) {
    sink->overLimit = true;
    return 0;  // curl stops the transfer
  }
  sink->body.append(bytes, n);
  return n;
}

struct Request {
  std::string url;
  std::optional<std::string> key;
  double timeout = 3;
  size_t limit = listingLimit;
  std::optional<std::string> postJSON;
};

Reply perform(const Request& request) {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) return {};
  Sink sink;
  sink.limit = request.limit;
  struct curl_slist* headers = nullptr;
  if (request.key && !request.key->empty())
    headers = curl_slist_append(headers, ("Authorization: Bearer " + *request.key).c_str());
  if (request.postJSON) {
    headers = curl_slist_append(headers, "Content-Type: application/json");
    // No "Expect: 100-continue" wait: not every small server answers it.
    headers = curl_slist_append(headers, "Expect:");
  }
  long millis = std::max(1L, static_cast<long>(std::llround(request.timeout * 1000)));
  CURL* c = curl.get();
  curl_easy_setopt(c, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, millis);
  curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, millis);
  curl_easy_setopt(c, CURLOPT_NOPROXY, "localhost,127.0.0.1,::1");
  curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(c, CURLOPT_WRITEDATA, &sink);
  curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers);
  if (request.postJSON) {
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, request.postJSON->data());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.postJSON->size()));
  }
  CURLcode code = curl_easy_perform(c);
  curl_slist_free_all(headers);
  Reply reply;
  reply.overLimit = sink.overLimit;
  long status = 0;
  curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &status);
  if (code == CURLE_OK) {
    reply.data = std::move(sink.body);
    reply.status = status;
  } else if (sink.overLimit && status > 0) {
    reply.status = status;
  }
  return reply;
}

// The base with one trailing slash, so that a path prefix of the server stays.
std::string resolved(const std::string& base, const std::string& path) {
  std::string out = base;
  while (!out.empty() && out.back() == '/') out.pop_back();
  return out + "/" + path;
}

bool isURL(const std::string& text) {
  CURLU* parsed = curl_url();
  bool ok = curl_url_set(parsed, CURLUPART_URL, text.c_str(), 0) == CURLUE_OK;
  curl_url_cleanup(parsed);
  return ok;
}

std::string escaped(const std::string& text) {
  char* out = curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size()));
  std::string result = out ? out : "";
  curl_free(out);
  return result;
}

std::string trimmed(std::string_view text) {
  static constexpr std::string_view space = " \t\n\r\f\v";
  auto first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(space) - first + 1));
}

// Invalid UTF-8 becomes U+FFFD, so that what a server said can always be shown.
std::string repairedUTF8(std::string_view bytes) {
  std::string out;
  size_t i = 0;
  while (i < bytes.size()) {
    unsigned char c = static_cast<unsigned char>(bytes[i]);
    size_t length = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    bool valid = length > 0 && i + length <= bytes.size();
    for (size_t k = 1; valid && k < length; ++k) valid = (static_cast<unsigned char>(bytes[i + k]) & 0xC0) == 0x80;
    if (valid && length > 1 && c < 0xC2) valid = false;  // overlong
    if (valid) {
      out.append(bytes.substr(i, length));
      i += length;
    } else {
      out += "\xEF\xBF\xBD";
      i += 1;
    }
  }
  return out;
}

// A name from /v1/audio/voices: a bare string, or an object's id, else its name.
std::optional<std::string> entryName(const json& entry) {
  if (entry.is_string()) return entry.get<std::string>();
  if (!entry.is_object()) return std::nullopt;
  if (auto id = entry.find("id"); id != entry.end() && id->is_string()) return id->get<std::string>();
  if (auto name = entry.find("name"); name != entry.end() && name->is_string()) return name->get<std::string>();
  return std::nullopt;
}

std::optional<std::vector<std::string>> names(const json& list) {
  if (!list.is_array()) return std::nullopt;
  std::vector<std::string> out;
  for (const auto& entry : list) {
    auto name = entryName(entry);
    if (!name) return std::nullopt;  // one bad entry and the whole list does not decode
    out.push_back(*name);
  }
  return out;
}


}  // namespace

LocalDriverFailure LocalDriverFailure::unreachable(const std::string& url) {
  return {Kind::unreachable, "Nothing answered at " + url + ". Start your TTS server or change its address."};
}
LocalDriverFailure LocalDriverFailure::refused(const std::string& url, long status) {
  return {Kind::refused, "The server at " + url + " refused the API key (HTTP " + std::to_string(status) + ")."};
}
LocalDriverFailure LocalDriverFailure::notSpeech(const std::string& url, long status) {
  return {Kind::notSpeech, "The server at " + url + " does not speak the OpenAI v1 audio API (HTTP " +
                               std::to_string(status) + " from /v1/models)."};
}
LocalDriverFailure LocalDriverFailure::failed(const std::string& url, long status, const std::string& reason) {
  std::string text = "The server at " + url + " could not render this line (HTTP " + std::to_string(status) + ")";
  if (!reason.empty()) text += ": " + reason;
  return {Kind::failed, text};
}
LocalDriverFailure LocalDriverFailure::silent(const std::string& url) {
  return {Kind::silent, "The server at " + url + " returned no audio."};
}
LocalDriverFailure LocalDriverFailure::cannotWrite(const fs::path& file) {
  return {Kind::cannotWrite, "The audio could not be written to " + file.string() + "."};
}

LocalDriver::LocalDriver(fs::path file, double probeTimeout, double renderTimeout, size_t audioLimit)
    : file_(std::move(file)), probeTimeout_(probeTimeout), renderTimeout_(renderTimeout), audioLimit_(audioLimit) {}

void LocalDriver::use(const LocalServer& server) {
  server.save(file_);
  std::lock_guard guard(lock_);
  listed_.reset();
}

void LocalDriver::refresh() {
  std::lock_guard guard(lock_);
  listed_.reset();
}

DriverHealth LocalDriver::health() { return listing().health; }

std::vector<DriverCharacter> LocalDriver::characters() { return listing().characters; }

LocalDriver::Listing LocalDriver::listing() {
  {
    std::lock_guard guard(lock_);
    if (listed_) return *listed_;
  }
  // Never held across the network: two callers that miss together both ask.
  Listing fresh = ask(server());
  std::lock_guard guard(lock_);
  listed_ = fresh;
  return fresh;
}

LocalDriver::Listing LocalDriver::ask(const LocalServer& server) const {
  if (!isURL(server.url))
    return {{}, DriverHealth::absent("the local server address " + server.url + " is not a URL")};
  auto get = [&](const std::string& path) {
    return perform({resolved(server.url, path), server.key, probeTimeout_, listingLimit, std::nullopt});
  };

  std::vector<std::string> models;
  Reply listed = get("v1/models");
  if (!listed.data || !listed.status)
    return {{}, DriverHealth::absent(LocalDriverFailure::unreachable(server.url).what())};
  long status = *listed.status;
  if (status == 401 || status == 403)
    return {{}, DriverHealth::absent(LocalDriverFailure::refused(server.url, status).what())};
  if (status > 399) {
    // No listing: a server that is alive still speaks with its own default model.
    Reply alive = get("health");
    if (!(alive.status && *alive.status < 400 && alive.data))
      return {{}, DriverHealth::absent(LocalDriverFailure::notSpeech(server.url, status).what())};
  } else {
    json body = json::parse(*listed.data, nullptr, false);
    if (body.is_object())
      if (auto data = body.find("data"); data != body.end() && data->is_array())
        for (const auto& entry : *data)
          if (entry.is_object())
            if (auto id = entry.find("id"); id != entry.end() && id->is_string()) models.push_back(id->get<std::string>());
  }
  if (models.empty()) models.push_back("");

  Listing result;
  int voiceCount = 0;
  for (const auto& model : models) {
    std::string path = "v1/audio/voices";
    if (!model.empty()) path += "?model=" + escaped(model);
    Reply reply = get(path);
    std::vector<std::string> voices;
    if (reply.data) {
      json body = json::parse(*reply.data, nullptr, false);
      std::optional<std::vector<std::string>> decoded;
      if (body.is_object())
        if (auto list = body.find("voices"); list != body.end()) decoded = names(*list);
      if (!decoded) decoded = names(body);
      if (decoded) voices = *decoded;
    }
    if (voices.empty()) voices.push_back(defaultVoice);
    DriverCharacter character;
    character.id = model.empty() ? name() : model;
    character.name = model.empty() ? "Local server" : model;
    character.activeVoiceId = voices.front();
    for (const auto& voice : voices) character.voices.push_back({voice, voice, true, name(), std::nullopt, std::nullopt});
    voiceCount += static_cast<int>(character.voices.size());
    result.characters.push_back(std::move(character));
  }
  result.health = DriverHealth::presentWith(false, DriverLocation::local, static_cast<int>(result.characters.size()),
                                            voiceCount, server.url);
  return result;
}

std::string LocalDriver::reason(const std::string& body) {
  json wrapped = json::parse(body, nullptr, false);
  if (wrapped.is_object())
    if (auto error = wrapped.find("error"); error != wrapped.end() && error->is_object())
      if (auto message = error->find("message"); message != error->end() && message->is_string())
        return message->get<std::string>();
  std::string_view head(body.data(), std::min<size_t>(body.size(), 200));
  return trimmed(repairedUTF8(head));
}

RenderResult LocalDriver::render(const std::string& text, const std::string& character, const std::string& voice,
                                 const fs::path& to) {
  const LocalServer current = server();
  if (!isURL(current.url)) throw LocalDriverFailure::unreachable(current.url);
  const std::string model = character == name() ? "" : character;
  std::string spoken = trimmed(voice);
  if (spoken == defaultVoice) spoken.clear();

  // Nothing when the server refused the format, which asks for a plain retry.
  auto speak = [&](const std::optional<std::string>& format) -> std::optional<std::string> {
    json body{{"input", text}};
    if (!model.empty()) body["model"] = model;
    if (!spoken.empty()) body["voice"] = spoken;
    if (format) body["response_format"] = *format;
    Reply reply = perform({resolved(current.url, "v1/audio/speech"), current.key, renderTimeout_, audioLimit_, body.dump()});
    if (reply.overLimit)
      throw LocalDriverFailure::failed(current.url, reply.status.value_or(0),
                                       "its answer ran past " + std::to_string(audioLimit_ >> 20) + " MB, which is no line");
    if (!reply.data || !reply.status) throw LocalDriverFailure::unreachable(current.url);
    long status = *reply.status;
    if (status == 401 || status == 403) throw LocalDriverFailure::refused(current.url, status);
    if ((status == 400 || status == 422) && format) return std::nullopt;
    if (status >= 400) throw LocalDriverFailure::failed(current.url, status, reason(*reply.data));
    return std::move(reply.data);
  };
  auto data = speak("wav");
  if (!data) data = speak(std::nullopt);
  if (!data || data->empty()) throw LocalDriverFailure::silent(current.url);

  // Nothing lands at `to` until the whole answer has proved to be sound: a failed
  // render leaves the line's previous audio, and no half file, behind.
  std::error_code ec;
  fs::create_directories(to.parent_path(), ec);
  fs::path download = to;
  download.replace_extension("download");
  fs::path part = to;
  part += ".part";
  auto cleanUp = [&] {
    std::error_code ignored;
    fs::remove(download, ignored);
    fs::remove(part, ignored);
  };
  {
    std::ofstream out(download, std::ios::binary | std::ios::trunc);
    out.write(data->data(), static_cast<std::streamsize>(data->size()));
    out.close();
    if (!out) {
      cleanUp();
      throw LocalDriverFailure::cannotWrite(to);
    }
  }
  data.reset();
  bool isWav = false;
  {
    std::ifstream in(download, std::ios::binary);
    char magic[4] = {};
    in.read(magic, 4);
    isWav = in.gcount() == 4 && std::string_view(magic, 4) == "RIFF";
  }
  try {
    if (isWav) {
      fs::rename(download, part, ec);
      if (ec) throw LocalDriverFailure::cannotWrite(to);
    } else {
      bool decoded = AudioFile::transcodeToWav(download, part);
      fs::remove(download, ec);
      if (!decoded) throw LocalDriverFailure::silent(current.url);
    }
  } catch (const LocalDriverFailure&) {
    cleanUp();
    throw;
  } catch (const std::exception&) {
    cleanUp();
    throw LocalDriverFailure::cannotWrite(to);
  }
  auto seconds = AudioFile::seconds(part);
  if (!seconds || !(*seconds > 0)) {
    cleanUp();
    throw LocalDriverFailure::silent(current.url);
  }
  fs::rename(part, to, ec);
  if (ec) {
    cleanUp();
    throw LocalDriverFailure::cannotWrite(to);
  }
  return {to, std::round(*seconds * 100) / 100, spoken.empty() ? std::string(defaultVoice) : spoken};
}

}  // namespace tavorin
