#include "kit/YouTubeDocuments.hpp"

#include <nlohmann/json.hpp>

#include <cmath>
#include <stdexcept>

#include "base/IsoDate.hpp"
#include "base/Text.hpp"

namespace tavorin {

namespace {

using Json = nlohmann::json;

Json parsed(std::string_view text, const std::string& what) {
  Json j = Json::parse(text.begin(), text.end(), nullptr, false);
  if (j.is_discarded() || !j.is_object()) throw std::runtime_error(what + " is not JSON");
  return j;
}

std::optional<std::string> textAt(const Json& j, const char* key) {
  const auto it = j.find(key);
  if (it == j.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::string required(const Json& j, const char* key, const std::string& what) {
  auto value = textAt(j, key);
  if (!value || value->empty()) throw std::runtime_error(what + " has no " + key);
  return *value;
}

}  // namespace

YouTubeClient YouTubeClient::decode(std::string_view json) {
  const Json j = parsed(json, "that client file");
  const auto installed = j.find("installed");
  if (installed == j.end() || !installed->is_object())
    throw std::runtime_error("that client file is not a Desktop app client");
  return {required(*installed, "client_id", "that client file"),
          required(*installed, "client_secret", "that client file")};
}

std::string YouTubeToken::encoded() const {
  Json j = Json::object();
  j["accessToken"] = accessToken;
  j["refreshToken"] = refreshToken;
  j["expiresAt"] = IsoDate::format(expiresAt);
  return j.dump(2) + "\n";
}

YouTubeToken YouTubeToken::decode(std::string_view json) {
  const Json j = parsed(json, "the YouTube token");
  YouTubeToken t;
  t.accessToken = required(j, "accessToken", "the YouTube token");
  t.refreshToken = required(j, "refreshToken", "the YouTube token");
  const auto when = IsoDate::parse(textAt(j, "expiresAt").value_or(""));
  if (!when) throw std::runtime_error("the YouTube token has no expiresAt");
  t.expiresAt = *when;
  return t;
}

std::string YouTubeChannel::encoded() const {
  Json j = Json::object();
  j["id"] = id;
  j["title"] = title;
  if (handle) j["handle"] = *handle;
  return j.dump(2) + "\n";
}

YouTubeChannel YouTubeChannel::decode(std::string_view json) {
  const Json j = parsed(json, "the channel file");
  return {required(j, "id", "the channel file"), textAt(j, "title").value_or(""), textAt(j, "handle")};
}

YouTubeChannel YouTubeChannel::fromChannelsAnswer(std::string_view json) {
  const Json j = parsed(json, "YouTube's answer about the channel");
  const auto items = j.find("items");
  if (items == j.end() || !items->is_array() || items->empty() || !(*items)[0].is_object())
    throw std::runtime_error("that Google account holds no YouTube channel");
  const Json& first = (*items)[0];
  YouTubeChannel c;
  c.id = required(first, "id", "YouTube's answer about the channel");
  const auto snippet = first.find("snippet");
  if (snippet != first.end() && snippet->is_object()) {
    c.title = textAt(*snippet, "title").value_or("");
    c.handle = textAt(*snippet, "customUrl");
  }
  return c;
}

namespace YouTubeAnswers {

Grant grant(std::string_view json) {
  const Json j = parsed(json, "Google's token answer");
  Grant g;
  g.accessToken = required(j, "access_token", "Google's token answer");
  g.refreshToken = textAt(j, "refresh_token");
  if (g.refreshToken && g.refreshToken->empty()) g.refreshToken.reset();
  const auto expires = j.find("expires_in");
  if (expires != j.end() && expires->is_number()) g.expiresIn = expires->get<double>();
  else if (expires != j.end() && expires->is_string()) g.expiresIn = std::atof(expires->get<std::string>().c_str());
  // A lifetime that will not read is taken as none left, so the next use refreshes.
  if (!std::isfinite(g.expiresIn) || g.expiresIn < 0 || g.expiresIn > 1e8) g.expiresIn = 0;
  return g;
}

std::optional<std::string> videoId(std::string_view json) {
  const Json j = Json::parse(json.begin(), json.end(), nullptr, false);
  if (j.is_discarded() || !j.is_object()) return std::nullopt;
  auto id = textAt(j, "id");
  if (id && id->empty()) return std::nullopt;
  return id;
}

std::string summary(std::string_view body) {
  const Json j = Json::parse(body.begin(), body.end(), nullptr, false);
  if (!j.is_discarded() && j.is_object()) {
    const auto error = j.find("error");
    if (error != j.end() && error->is_object()) {
      if (auto message = textAt(*error, "message")) return *message;
    }
    if (auto description = textAt(j, "error_description")) return *description;
    if (error != j.end() && error->is_string()) return error->get<std::string>();
  }
  const std::string_view trimmed = Text::trimSpace(body);
  const std::string_view line = trimmed.substr(0, trimmed.find('\n'));
  return std::string(line.substr(0, 300));
}

}  // namespace YouTubeAnswers

}  // namespace tavorin
