#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// The one request a browser makes to the sign-in's loopback redirect, as its head
// arrives ("GET /?code=..&state=.. HTTP/1.1\r\n..."). Whoever can reach the port can
// send anything here, so nothing in it is trusted beyond these rules.
struct RedirectRequest {
  std::string target;                        // as written on the request line
  std::map<std::string, std::string> query;  // decoded; of a repeated key the first wins

  // Nothing when the first line is not three parts separated by spaces.
  static std::optional<RedirectRequest> parse(std::string_view head);
  // Percent escapes become their bytes and "+" a space; a broken escape stays as written.
  static std::string decode(std::string_view text);

  std::optional<std::string> item(const std::string& key) const;
};

}  // namespace tavorin
