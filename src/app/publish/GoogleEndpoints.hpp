#pragma once
#include <string>

namespace tavorin {

// Where the sign-in, the token exchange and the Data API live. Google's public hosts,
// unless TAVORIN_GOOGLE names one base (scheme, host and port) for all three, which is
// how tests put a server of their own behind them.
struct GoogleEndpoints {
  std::string oauth = "https://accounts.google.com";
  std::string token = "https://oauth2.googleapis.com";
  std::string api = "https://www.googleapis.com";

  static GoogleEndpoints fromEnvironment();
  static GoogleEndpoints at(const std::string& base) { return {base, base, base}; }
};

}  // namespace tavorin
