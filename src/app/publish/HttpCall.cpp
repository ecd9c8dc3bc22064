#include "app/publish/HttpCall.hpp"

#include <curl/curl.h>

#include <cctype>
#include <memory>
#include <mutex>

namespace tavorin {

namespace {

void initialiseOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

size_t collectBody(char* data, size_t size, size_t count, void* user) {
  static_cast<std::string*>(user)->append(data, size * count);
  return size * count;
}

size_t collectHeader(char* data, size_t size, size_t count, void* user) {
  auto* headers = static_cast<std::map<std::string, std::string>*>(user);
  std::string line(data, size * count);
  // A new status line (after a 100 Continue) starts the headers over.
  if (line.rfind("HTTP/", 0) == 0) headers->clear();
  const size_t colon = line.find(':');
  if (colon != std::string::npos) {
    std::string name = line.substr(0, colon);
    for (char& c : name) c = char(std::tolower(static_cast<unsigned char>(c)));
    std::string value = line.substr(colon + 1);
    while (!value.empty() && std::isspace(static_cast<unsigned char>(value.front()))) value.erase(0, 1);
    while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back()))) value.pop_back();
    (*headers)[name] = value;
  }
  return size * count;
}

int watchStop(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto* stop = static_cast<const std::atomic<bool>*>(user);
  return stop && stop->load() ? 1 : 0;
}

}  // namespace

std::string HttpCall::Answer::header(const std::string& lowerName) const {
  const auto it = headers.find(lowerName);
  return it == headers.end() ? std::string() : it->second;
}

HttpCall::Answer HttpCall::perform() const {
  initialiseOnce();
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
  if (!curl) throw Broken("could not start an HTTP exchange");
  curl_slist* list = nullptr;
  for (const auto& h : headers) list = curl_slist_append(list, h.c_str());
  // A chunk goes in one piece; waiting for "100 Continue" only slows it.
  list = curl_slist_append(list, "Expect:");
  std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> held(list, &curl_slist_free_all);

  Answer answer;
  CURL* c = curl.get();
  curl_easy_setopt(c, CURLOPT_URL, url.c_str());
  curl_easy_setopt(c, CURLOPT_HTTPHEADER, list);
  curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(c, CURLOPT_TIMEOUT, timeoutSeconds);
  curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, 30L);
  curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, collectBody);
  curl_easy_setopt(c, CURLOPT_WRITEDATA, &answer.body);
  curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, collectHeader);
  curl_easy_setopt(c, CURLOPT_HEADERDATA, &answer.headers);
  curl_easy_setopt(c, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(c, CURLOPT_XFERINFOFUNCTION, watchStop);
  curl_easy_setopt(c, CURLOPT_XFERINFODATA, stop);
  if (method == "GET") {
    curl_easy_setopt(c, CURLOPT_HTTPGET, 1L);
  } else {
    curl_easy_setopt(c, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(c, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  }
  const CURLcode rc = curl_easy_perform(c);
  if (rc == CURLE_ABORTED_BY_CALLBACK) throw Stopped();
  if (rc != CURLE_OK) throw Broken(curl_easy_strerror(rc));
  curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &answer.status);
  return answer;
}

std::string formEncode(const std::vector<std::pair<std::string, std::string>>& fields) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (const auto& [key, value] : fields) {
    if (!out.empty()) out += '&';
    for (const std::string* part : {&key, &value}) {
      for (const char ch : *part) {
        const auto u = static_cast<unsigned char>(ch);
        if (std::isalnum(u) || ch == '-' || ch == '_' || ch == '.' || ch == '~') {
          out += ch;
        } else {
          out += '%';
          out += hex[u >> 4];
          out += hex[u & 15];
        }
      }
      if (part == &key) out += '=';
    }
  }
  return out;
}

}  // namespace tavorin
