#pragma once
#include <atomic>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavorin {

// One blocking HTTP exchange over libcurl, for the YouTube account and uploads. Run it
// off the main actor.
struct HttpCall {
  std::string method = "GET";
  std::string url;
  std::vector<std::string> headers;  // "Name: value"
  std::string body;
  long timeoutSeconds = 60;
  // Set from another thread, it ends the exchange within a fraction of a second.
  const std::atomic<bool>* stop = nullptr;

  struct Answer {
    long status = 0;
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
    std::string header(const std::string& lowerName) const;
  };

  // The exchange broke before an answer came: no connection, a dropped one, a time-out.
  struct Broken : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  // The exchange was ended through `stop`.
  struct Stopped : std::runtime_error {
    Stopped() : std::runtime_error("stopped") {}
  };

  Answer perform() const;
};

// application/x-www-form-urlencoded and query text: every byte but the unreserved ones escaped.
std::string formEncode(const std::vector<std::pair<std::string, std::string>>& fields);

}  // namespace tavorin
