#include <arpa/inet.h>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <nlohmann/json.hpp>

#include "TestSupport.hpp"
#include "voice/SpeechServerProcess.hpp"
#include "voice/speechserver/SpeechRequest.hpp"

namespace tavorin {
namespace {

using nlohmann::json;

TEST(SpeechRequestDecode, TakesWhatTheApiAllows) {
  auto request = SpeechRequest::decode(
      R"({"input":"Hello.","model":"espeak-ng","voice":"en-gb","response_format":"pcm","speed":1.5,"extra":[1]})");
  EXPECT_EQ(request.input, "Hello.");
  EXPECT_EQ(request.model, "espeak-ng");
  EXPECT_EQ(request.voice, "en-gb");
  EXPECT_EQ(request.format, SpeechRequest::Format::pcm);
  EXPECT_EQ(request.speed, 1.5);
  auto bare = SpeechRequest::decode(R"({"input":"Hi","voice":"","speed":null})");
  EXPECT_FALSE(bare.voice);
  EXPECT_FALSE(bare.model);
  EXPECT_EQ(bare.format, SpeechRequest::Format::wav);
  EXPECT_EQ(bare.speed, 1.0);
}

TEST(SpeechRequestDecode, RefusesEachBadBodyWithItsSentence) {
  auto refused = [](std::string body) { return test::refusal([&] { SpeechRequest::decode(body); }); };
  EXPECT_EQ(refused(""), "The request body is not valid JSON.");
  EXPECT_EQ(refused("[\"input\"]"), "The request body must be a JSON object.");
  EXPECT_EQ(refused("{}"), "\"input\" is required: the text to speak.");
  EXPECT_EQ(refused(R"({"input":5})"), "\"input\" must be a string.");
  EXPECT_EQ(refused(R"({"input":" \n "})"), "\"input\" holds no words to speak.");
  EXPECT_EQ(refused(R"({"input":"a\udc00"})"), "The request body is not valid JSON.");
  EXPECT_EQ(refused("{\"input\":\"\xff\"}"), "The request body is not valid JSON.");
  EXPECT_EQ(refused(R"({"input":"a","response_format":"mp3"})"),
            "\"response_format\" mp3 is not offered here; ask for wav or pcm.");
  EXPECT_EQ(refused(R"({"input":"a","speed":9})"), "\"speed\" must be a number from 0.25 to 4.");
  EXPECT_EQ(refused(R"({"input":"a","speed":"fast"})"), "\"speed\" must be a number from 0.25 to 4.");
  EXPECT_EQ(refused(R"({"input":"a","voice":{}})"), "\"voice\" must be a string.");
  EXPECT_EQ(refused(R"({"input":")" + std::string(4097, 'a') + "\"}"), "\"input\" is longer than 4096 characters.");
  EXPECT_EQ(refused(R"({"input":"a","x":)" + std::string(1000, '[') + std::string(1000, ']') + "}"),
            "The request nests deeper than a speech request can.");
  // 4096 characters of three bytes each is within the limit.
  std::string wide;
  for (int i = 0; i < 4096; ++i) wide += "\xe2\x82\xac";
  EXPECT_EQ(SpeechRequest::decode(json{{"input", wide}}.dump()).input, wide);
}

struct Reply {
  long status = 0;
  std::string body, type;
};

size_t collect(char* bytes, size_t size, size_t count, void* out) {
  static_cast<std::string*>(out)->append(bytes, size * count);
  return size * count;
}

Reply call(const std::string& url, std::optional<std::string> post = std::nullopt) {
  CURL* curl = curl_easy_init();
  Reply reply;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 10L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
  curl_slist* headers = curl_slist_append(nullptr, "Expect:");
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  if (post) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, post->data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(post->size()));
  }
  if (curl_easy_perform(curl) == CURLE_OK) {
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    char* type = nullptr;
    curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
    if (type) reply.type = type;
  }
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return reply;
}

std::string errorOf(const Reply& reply) {
  json body = json::parse(reply.body, nullptr, false);
  if (!body.is_object() || !body.contains("error")) return "(no JSON error) " + reply.body.substr(0, 80);
  return body["error"]["message"];
}

class TavorinSpeech : public ::testing::Test {
 protected:
  test::SpeechServerProcess server;
  std::string at(const std::string& path) { return server.url() + path; }
  Reply speak(const json& body) { return call(at("/v1/audio/speech"), body.dump()); }
};

TEST_F(TavorinSpeech, ListsOneModelTheEnglishVoicesAndIsAlive) {
  auto models = json::parse(call(at("/v1/models")).body);
  EXPECT_EQ(models["data"].size(), 1u);
  EXPECT_EQ(models["data"][0]["id"], "espeak-ng");
  auto voices = json::parse(call(at("/v1/audio/voices?model=espeak-ng")).body)["voices"];
  ASSERT_GE(voices.size(), 2u);
  EXPECT_EQ(voices[0]["id"], "en-us");
  for (const auto& voice : voices) EXPECT_EQ(voice["id"].get<std::string>().substr(0, 2), "en");
  EXPECT_EQ(call(at("/v1/audio/voices?model=tts-9")).status, 404);
  EXPECT_EQ(call(at("/health")).status, 200);
  auto missing = call(at("/v2/nothing"));
  EXPECT_EQ(missing.status, 404);
  EXPECT_NE(errorOf(missing).find("/v1/audio/speech"), std::string::npos);
}

TEST_F(TavorinSpeech, SpeaksWavOrPcmInTheVoiceAndSpeedAsked) {
  auto wav = speak({{"input", "The quick brown fox jumps over the lazy dog."}});
  ASSERT_EQ(wav.status, 200) << wav.body;
  EXPECT_EQ(wav.type, "audio/wav");
  ASSERT_GT(wav.body.size(), 44u);
  EXPECT_EQ(wav.body.substr(0, 4), "RIFF");
  EXPECT_EQ(wav.body.substr(8, 4), "WAVE");

  auto pcm = speak({{"input", "The quick brown fox jumps over the lazy dog."}, {"response_format", "pcm"}});
  EXPECT_EQ(pcm.type, "audio/pcm");
  // The same speech without the header: whole 16-bit samples, as many as the WAV holds, give or take.
  EXPECT_EQ(pcm.body.size() % 2, 0u);
  EXPECT_NEAR(static_cast<double>(pcm.body.size()), static_cast<double>(wav.body.size() - 44), wav.body.size() * 0.05);
  EXPECT_NE(pcm.body.substr(0, 4), "RIFF");

  auto british = speak({{"input", "The quick brown fox jumps over the lazy dog."}, {"voice", "en-gb-x-rp"}});
  EXPECT_EQ(british.status, 200);
  EXPECT_TRUE(british.body != wav.body) << "the voice asked for made no difference";
  auto fast = speak({{"input", "The quick brown fox jumps over the lazy dog."}, {"speed", 2.0}});
  EXPECT_LT(fast.body.size(), wav.body.size() * 3 / 4);
}

TEST_F(TavorinSpeech, RefusesBadRequestsWithJsonErrors) {
  auto bad = call(at("/v1/audio/speech"), std::string("{\"input\":"));
  EXPECT_EQ(bad.status, 400);
  EXPECT_EQ(bad.type, "application/json");
  EXPECT_EQ(errorOf(bad), "The request body is not valid JSON.");
  EXPECT_EQ(errorOf(speak({{"input", "Hi"}, {"model", "tts-1"}})), "No model called tts-1. This server offers espeak-ng.");
  auto voice = speak({{"input", "Hi"}, {"voice", "alloy"}});
  EXPECT_EQ(voice.status, 400);
  EXPECT_EQ(errorOf(voice), "No voice called alloy. See GET /v1/audio/voices.");
  auto huge = call(at("/v1/audio/speech"), json{{"input", std::string(70000, 'a')}}.dump());
  EXPECT_EQ(huge.status, 413);
  EXPECT_EQ(errorOf(huge), "The request body is larger than 65536 bytes.");
}

TEST_F(TavorinSpeech, SurvivesHostileBytesAndServesConcurrentClientsInTurn) {
  for (std::string junk : {std::string("\x00\xff\x13garbage\r\n\r\n", 14), std::string("POST /v1/audio/speech HTTP/1.1\r\n"
                           "Content-Length: 99999999999999999999\r\n\r\n{"), std::string(9000, 'G')}) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(server.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::send(fd, junk.data(), junk.size(), MSG_NOSIGNAL);
    ::shutdown(fd, SHUT_WR);
    char sink[512];
    while (::recv(fd, sink, sizeof sink, 0) > 0) {
    }
    ::close(fd);
  }
  std::vector<std::future<Reply>> calls;
  for (int i = 0; i < 4; ++i)
    calls.push_back(std::async(std::launch::async, [&, i] {
      return speak({{"input", "Client number " + std::to_string(i) + " speaks."}});
    }));
  for (auto& reply : calls) EXPECT_EQ(reply.get().status, 200);
  EXPECT_EQ(server.stop(), 0);
}

}  // namespace
}  // namespace tavorin
