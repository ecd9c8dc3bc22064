#pragma once
// Google's OAuth token endpoint, the channels list and the resumable upload, as strict
// as the studio needs them to be: every call must carry the current bearer token, every
// chunk must begin where the last one ended and say so in its Content-Range, and the
// total must match what the session was opened for. Faults are armed one at a time.
#include <nlohmann/json.hpp>

#include <map>
#include <mutex>
#include <string>

#include "StubHttpServer.hpp"

namespace tavorin::test {

class FakeGoogle {
 public:
  // Faults, each consumed by the first request it applies to.
  struct Faults {
    int dropChunk = 0;       // the Nth chunk PUT (1-based) is read and the connection closed unanswered
    int unauthorisedChunk = 0;  // the Nth chunk PUT answers 401 (the access token "expired")
    int failChunk = 0;       // the Nth chunk PUT answers 500
    bool rejectRefresh = false;
  };

  FakeGoogle() : server_([this](const StubRequest& r, StubConnection& c) { handle(r, c); }) {}

  std::string url() const { return server_.url(); }
  std::vector<StubRequest> requests() const { return server_.requests(); }

  std::mutex lock;
  Faults faults;
  std::string clientId = "cid.apps.googleusercontent.com";
  std::string clientSecret = "shh";
  std::string code = "4/the-code";
  std::string access = "ya29.first";
  std::string refreshToken = "1//refresh";
  int refreshes = 0;
  int chunkPuts = 0;
  std::string received;  // the bytes the session holds
  long declared = -1;    // X-Upload-Content-Length of the session
  nlohmann::json metadata;
  std::vector<std::string> violations;  // anything the studio did that Google would refuse

 private:
  static void answer(StubConnection& c, int status, const std::string& body,
                     const std::vector<std::string>& headers = {}) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " X\r\nContent-Type: application/json\r\n";
    for (const auto& h : headers) text += h + "\r\n";
    text += "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
    c.send(text);
  }

  static std::map<std::string, std::string> form(const std::string& body) {
    std::map<std::string, std::string> out;
    size_t at = 0;
    while (at <= body.size()) {
      const size_t amp = body.find('&', at);
      const std::string pair = body.substr(at, amp == std::string::npos ? std::string::npos : amp - at);
      const size_t eq = pair.find('=');
      auto decode = [](const std::string& s) {
        std::string d;
        for (size_t i = 0; i < s.size(); ++i) {
          if (s[i] == '%' && i + 2 < s.size()) {
            d += char(std::stoi(s.substr(i + 1, 2), nullptr, 16));
            i += 2;
          } else {
            d += s[i] == '+' ? ' ' : s[i];
          }
        }
        return d;
      };
      if (eq != std::string::npos) out[decode(pair.substr(0, eq))] = decode(pair.substr(eq + 1));
      if (amp == std::string::npos) break;
      at = amp + 1;
    }
    return out;
  }

  bool authorised(const StubRequest& r) {
    const auto it = r.headers.find("authorization");
    return it != r.headers.end() && it->second == "Bearer " + access;
  }

  void violation(StubConnection& c, const std::string& what) {
    violations.push_back(what);
    answer(c, 400, R"({"error":{"code":400,"message":")" + what + R"("}})");
  }

  void handle(const StubRequest& r, StubConnection& c) {
    std::lock_guard guard(lock);
    if (r.method == "POST" && r.path() == "/token") return token(r, c);
    if (r.method == "GET" && r.target == "/youtube/v3/channels?part=snippet&mine=true") {
      if (!authorised(r)) return answer(c, 401, R"({"error":{"code":401,"message":"Invalid Credentials"}})");
      return answer(c, 200, R"({"items":[{"id":"UC42","snippet":{"title":"Halden Films","customUrl":"@halden"}}]})");
    }
    if (r.method == "POST" && r.target == "/upload/youtube/v3/videos?uploadType=resumable&part=snippet,status")
      return session(r, c);
    if (r.method == "PUT" && r.path() == "/upload/session/1") return chunk(r, c);
    violation(c, "no such endpoint: " + r.method + " " + r.target);
  }

  void token(const StubRequest& r, StubConnection& c) {
    if (r.headers.count("content-type") == 0 || r.headers.at("content-type") != "application/x-www-form-urlencoded")
      return violation(c, "the token endpoint takes a form");
    auto f = form(r.body);
    if (f["client_id"] != clientId || f["client_secret"] != clientSecret)
      return answer(c, 401, R"({"error":"invalid_client","error_description":"Unauthorized"})");
    if (f["grant_type"] == "authorization_code") {
      if (f["code"] != code || f["redirect_uri"].rfind("http://127.0.0.1:", 0) != 0)
        return answer(c, 400, R"({"error":"invalid_grant","error_description":"Bad Request"})");
      return answer(c, 200,
                    R"({"access_token":")" + access + R"(","refresh_token":")" + refreshToken +
                        R"(","expires_in":3599,"token_type":"Bearer"})");
    }
    if (f["grant_type"] == "refresh_token") {
      if (f["refresh_token"] != refreshToken || faults.rejectRefresh)
        return answer(c, 400, R"({"error":"invalid_grant","error_description":"Token has been expired or revoked."})");
      ++refreshes;
      access = "ya29.renewed-" + std::to_string(refreshes);
      return answer(c, 200, R"({"access_token":")" + access + R"(","expires_in":3599})");
    }
    violation(c, "unknown grant " + f["grant_type"]);
  }

  void session(const StubRequest& r, StubConnection& c) {
    if (!authorised(r)) return answer(c, 401, R"({"error":{"code":401,"message":"Invalid Credentials"}})");
    if (r.headers.count("x-upload-content-length") == 0 || r.headers.count("x-upload-content-type") == 0)
      return violation(c, "a resumable session needs the upload's length and type");
    metadata = nlohmann::json::parse(r.body, nullptr, false);
    if (metadata.is_discarded()) return violation(c, "the metadata is not JSON");
    declared = std::stol(r.headers.at("x-upload-content-length"));
    received.clear();
    answer(c, 200, "", {"Location: " + url() + "/upload/session/1"});
  }

  void chunk(const StubRequest& r, StubConnection& c) {
    if (!authorised(r)) return answer(c, 401, R"({"error":{"code":401,"message":"Invalid Credentials"}})");
    const auto range = r.headers.count("content-range") ? r.headers.at("content-range") : "";
    const std::string total = "/" + std::to_string(declared);
    if (range.size() < 6 || range.substr(range.size() - total.size()) != total)
      return violation(c, "Content-Range " + range + " does not end in the declared size");
    auto held = [&] {
      return received.empty() ? std::vector<std::string>{}
                              : std::vector<std::string>{"Range: bytes=0-" + std::to_string(received.size() - 1)};
    };
    if (range == "bytes */" + std::to_string(declared)) {
      if (long(received.size()) == declared) return answer(c, 200, R"({"id":"vid-42"})");
      return answer(c, 308, "", held());
    }
    const size_t dash = range.find('-');
    const long first = std::stol(range.substr(6, dash - 6));
    const long last = std::stol(range.substr(dash + 1));
    if (first != long(received.size())) return violation(c, "chunk begins at " + std::to_string(first));
    if (last - first + 1 != long(r.body.size())) return violation(c, "chunk length differs from its range");
    if (r.headers.count("content-length") == 0 || std::stol(r.headers.at("content-length")) != long(r.body.size()))
      return violation(c, "Content-Length differs from the body");
    ++chunkPuts;
    if (chunkPuts == faults.dropChunk) return;  // read, never answered, connection closed
    if (chunkPuts == faults.unauthorisedChunk) {
      access = "ya29.expired-under-you";
      return answer(c, 401, R"({"error":{"code":401,"message":"Invalid Credentials"}})");
    }
    if (chunkPuts == faults.failChunk) return answer(c, 500, R"({"error":{"code":500,"message":"Backend Error"}})");
    received += r.body;
    if (long(received.size()) == declared) return answer(c, 201, R"({"kind":"youtube#video","id":"vid-42"})");
    answer(c, 308, "", held());
  }

  StubHttpServer server_;
};

}  // namespace tavorin::test
