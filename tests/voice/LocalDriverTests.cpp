#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <mutex>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "StubHttpServer.hpp"
#include "TestSupport.hpp"
#include "voice/AudioFile.hpp"
#include "voice/SpeechServerProcess.hpp"
#include "voice/local/LocalDriver.hpp"

namespace tavorin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::StubConnection;
using test::StubHttpServer;
using test::StubRequest;

std::string wavOf(size_t samples) {
  std::string data(samples * 2, '\0');
  for (size_t i = 0; i < samples; ++i) data[i * 2 + 1] = static_cast<char>(i % 64);  // a quiet ramp
  auto put32 = [](std::string& s, uint32_t v) {
    for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xff);
  };
  std::string out = "RIFF";
  put32(out, static_cast<uint32_t>(36 + data.size()));
  out += "WAVEfmt ";
  put32(out, 16);
  out += std::string("\x01\x00\x01\x00", 4);
  put32(out, 8000);
  put32(out, 16000);
  out += std::string("\x02\x00\x10\x00", 4);
  out += "data";
  put32(out, static_cast<uint32_t>(data.size()));
  return out + data;
}

// A folder for the record and the audio, and a driver reading the record there.
struct Fixture {
  test::TempDir dir;
  fs::path record() const { return dir / "support/local-voice.json"; }
  fs::path audio(const std::string& name = "line.wav") const { return dir / "audio" / name; }

  LocalDriver driver(const std::string& url, std::optional<std::string> key = std::nullopt, double render = 5,
                     size_t limit = LocalDriver::defaultAudioLimit) const {
    LocalServer{url, std::move(key)}.save(record());
    return LocalDriver(record(), 2.0, render, limit);
  }
  // Files left in the audio folder: a failed render must leave none of its own.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    if (fs::exists(dir / "audio"))
      for (const auto& entry : fs::directory_iterator(dir / "audio")) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST(LocalServerRecord, NormalisesWhatTheUserTyped) {
  EXPECT_EQ(LocalServer::normalized("localhost:8880/v1/"), "http://localhost:8880");
  EXPECT_EQ(LocalServer::normalized("  https://tts.example.org/base/v1  "), "https://tts.example.org/base");
  EXPECT_EQ(LocalServer::normalized("http://127.0.0.1:9000///"), "http://127.0.0.1:9000");
  EXPECT_EQ(LocalServer::normalized("host/v1/v1"), "http://host/v1");  // the suffix goes once
  EXPECT_FALSE(LocalServer::normalized("ftp://x"));
  EXPECT_FALSE(LocalServer::normalized("   "));
  EXPECT_FALSE(LocalServer::normalized(""));
  EXPECT_FALSE(LocalServer::normalized("http://"));
}

TEST(LocalServerRecord, SavedPrivatelyAndReadBackOrTheDefault) {
  test::TempDir dir;
  const fs::path file = dir / "deep/support/local-voice.json";
  EXPECT_EQ(LocalServer::load(file), LocalServer{});
  EXPECT_EQ(LocalServer::load(file).url, "http://127.0.0.1:8080");

  LocalServer server{"http://127.0.0.1:9999", "sk-secret"};
  server.save(file);
  struct stat info {};
  ASSERT_EQ(::stat(file.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_EQ(LocalServer::load(file), server);
  EXPECT_EQ(json::parse(test::readFile(file)), (json{{"key", "sk-secret"}, {"url", "http://127.0.0.1:9999"}}));

  test::writeFile(file, "{ not json");
  EXPECT_EQ(LocalServer::load(file), LocalServer{});
  test::writeFile(file, R"({"key": "k"})");
  EXPECT_EQ(LocalServer::load(file), LocalServer{});

  // A folder where the file should be cannot be written over.
  EXPECT_NE(test::refusal([&] { server.save(dir.path()); }), "(no refusal)");
}

class AgainstTavorinSpeech : public ::testing::Test {
 protected:
  test::SpeechServerProcess server;
  Fixture fixture;
};

TEST_F(AgainstTavorinSpeech, ListsTheModelAndTheEnglishVoices) {
  LocalDriver driver = fixture.driver(server.url());
  DriverHealth health = driver.health();
  EXPECT_TRUE(health.present);
  EXPECT_FALSE(health.clones);
  EXPECT_EQ(health.location, DriverLocation::local);
  EXPECT_EQ(health.source, server.url());
  EXPECT_EQ(health.characters, 1);
  auto cast = driver.characters();
  ASSERT_EQ(cast.size(), 1u);
  EXPECT_EQ(cast[0].id, "espeak-ng");
  EXPECT_EQ(cast[0].activeVoiceId, "en-us");
  EXPECT_TRUE(cast[0].hasVoice("en-gb"));
  EXPECT_EQ(health.voices, static_cast<int>(cast[0].voices.size()));
  EXPECT_EQ(cast[0].voices[0].source, "local");
}

TEST_F(AgainstTavorinSpeech, RendersAMeasuredWavAndNamesWhatItRefused) {
  LocalDriver driver = fixture.driver(server.url());
  auto result = driver.render("Hello there, this is the studio speaking.", "espeak-ng", "en-gb", fixture.audio());
  EXPECT_EQ(result.audioURL, fixture.audio());
  EXPECT_EQ(result.usedVoice, "en-gb");
  EXPECT_GT(result.duration, 1.0);
  EXPECT_NEAR(*AudioFile::seconds(fixture.audio()), result.duration, 0.006);
  EXPECT_EQ(test::readFile(fixture.audio()).substr(0, 4), "RIFF");
  EXPECT_EQ(fixture.leftovers(), (std::vector<std::string>{"line.wav"}));

  auto plain = driver.render("Hi.", "espeak-ng", " default ", fixture.audio("b.wav"));
  EXPECT_EQ(plain.usedVoice, "default");

  EXPECT_EQ(test::refusal([&] { driver.render("Hi.", "espeak-ng", "nope", fixture.audio("c.wav")); }),
            "The server at " + server.url() +
                " could not render this line (HTTP 400): No voice called nope. See GET /v1/audio/voices.");
  EXPECT_FALSE(fs::exists(fixture.audio("c.wav")));
}

TEST_F(AgainstTavorinSpeech, AServerThatWentAwayIsNamed) {
  LocalDriver driver = fixture.driver(server.url());
  const std::string url = server.url();
  EXPECT_EQ(server.stop(), 0);  // a clean stop on SIGTERM
  const std::string sentence = "Nothing answered at " + url + ". Start your TTS server or change its address.";
  EXPECT_FALSE(driver.health().present);
  EXPECT_EQ(driver.health().note, sentence);
  EXPECT_TRUE(driver.characters().empty());
  EXPECT_EQ(test::refusal([&] { driver.render("Hi.", "espeak-ng", "en-us", fixture.audio()); }), sentence);
}

// --- A server with part of the API, or none of it -----------------------------

using Handler = StubHttpServer::Handler;

Handler routes(std::map<std::string, std::pair<int, std::string>> answers) {
  return [answers](const StubRequest& request, StubConnection& connection) {
    auto found = answers.find(request.path());
    if (found == answers.end()) return connection.respond(404, "text/plain", "not here");
    if (found->second.first == 0) return;  // hang up without a word
    connection.respond(found->second.first, "application/json", found->second.second);
  };
}

TEST(LocalDriverListing, APartialApiStillSpeaks) {
  Fixture fixture;
  StubHttpServer stub(routes({{"/health", {200, "{}"}}}));
  LocalDriver driver = fixture.driver(stub.url());
  auto cast = driver.characters();
  ASSERT_EQ(cast.size(), 1u);
  EXPECT_EQ(cast[0].id, "local");
  EXPECT_EQ(cast[0].name, "Local server");
  EXPECT_EQ(cast[0].defaultVoiceId(), "default");
  EXPECT_TRUE(driver.health().present);
  EXPECT_EQ(driver.health().voices, 1);
  // Cached: asking again costs no request.
  const size_t asked = stub.requests().size();
  driver.health();
  EXPECT_EQ(stub.requests().size(), asked);
  driver.refresh();
  driver.health();
  EXPECT_GT(stub.requests().size(), asked);
}

TEST(LocalDriverListing, EachWayOfNotBeingASpeechServer) {
  Fixture fixture;
  {
    StubHttpServer stub(routes({}));
    EXPECT_EQ(fixture.driver(stub.url()).health().note,
              "The server at " + stub.url() + " does not speak the OpenAI v1 audio API (HTTP 404 from /v1/models).");
  }
  {
    StubHttpServer stub(routes({{"/v1/models", {500, "oops"}}, {"/health", {0, ""}}}));
    EXPECT_EQ(fixture.driver(stub.url()).health().note,
              "The server at " + stub.url() + " does not speak the OpenAI v1 audio API (HTTP 500 from /v1/models).");
  }
  {
    StubHttpServer stub(routes({{"/v1/models", {401, "{}"}}}));
    LocalDriver driver = fixture.driver(stub.url(), "sk-1");
    EXPECT_EQ(driver.health().note, "The server at " + stub.url() + " refused the API key (HTTP 401).");
    EXPECT_EQ(stub.requests().at(0).headers.at("authorization"), "Bearer sk-1");
  }
  {
    LocalDriver driver = fixture.driver("http://bad host");
    EXPECT_EQ(driver.health().note, "the local server address http://bad host is not a URL");
  }
}

TEST(LocalDriverListing, ModelsAndVoicesInEitherShape) {
  Fixture fixture;
  StubHttpServer stub([](const StubRequest& request, StubConnection& connection) {
    if (request.path() == "/v1/models")
      return connection.respond(200, "application/json", R"({"data":[{"id":"kokoro v1"},{"id":"piper"}]})");
    if (request.target == "/v1/audio/voices?model=kokoro%20v1")
      return connection.respond(200, "application/json", R"({"voices":["af_heart",{"id":"am_adam","name":"Adam"},{"name":"bf_emma"}]})");
    if (request.target == "/v1/audio/voices?model=piper")
      return connection.respond(200, "application/json", R"([{"name":"lessac"}])");
    connection.respond(404, "text/plain", "no");
  });
  LocalDriver driver = fixture.driver(stub.url());
  auto cast = driver.characters();
  ASSERT_EQ(cast.size(), 2u);
  EXPECT_EQ(cast[0].id, "kokoro v1");
  std::vector<std::string> voices;
  for (const auto& voice : cast[0].voices) voices.push_back(voice.id);
  EXPECT_EQ(voices, (std::vector<std::string>{"af_heart", "am_adam", "bf_emma"}));
  EXPECT_EQ(cast[1].voices.at(0).id, "lessac");
  EXPECT_EQ(driver.health().voices, 4);
  EXPECT_EQ(stub.malformed(), 0);
}

TEST(LocalDriverListing, AModelListThatIsNotJsonCountsAsNone) {
  Fixture fixture;
  StubHttpServer stub(routes({{"/v1/models", {200, "<html>hello</html>"}}, {"/v1/audio/voices", {200, "[1, 2]"}}}));
  auto cast = fixture.driver(stub.url()).characters();
  ASSERT_EQ(cast.size(), 1u);
  EXPECT_EQ(cast[0].id, "local");
  EXPECT_EQ(cast[0].voices.at(0).id, "default");
}

// --- Renders against a server that misbehaves -------------------------------

// Answers speech by `speak`, the listing like a bare server.
StubHttpServer speechStub(std::function<void(const json&, StubConnection&)> speak) {
  return StubHttpServer([speak](const StubRequest& request, StubConnection& connection) {
    if (request.path() != "/v1/audio/speech" || request.method != "POST")
      return connection.respond(404, "text/plain", "no");
    speak(json::parse(request.body), connection);
  });
}

std::vector<json> bodies(const StubHttpServer& stub) {
  std::vector<json> out;
  for (const auto& request : stub.requests()) out.push_back(json::parse(request.body));
  return out;
}

TEST(LocalDriverRender, AsksWithoutAFormatWhenTheFormatIsRefusedAndTranscodes) {
  Fixture fixture;
  const fs::path mp3 = fixture.dir / "tone.mp3";
  ASSERT_EQ(std::system(("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=1.5 -ar 22050 -ac 1 -y " +
                         mp3.string()).c_str()), 0);
  const std::string mp3Bytes = test::readFile(mp3);
  auto stub = speechStub([&](const json& body, StubConnection& connection) {
    if (body.contains("response_format")) return connection.respond(422, "application/json", R"({"detail":"no"})");
    connection.respond(200, "audio/mpeg", mp3Bytes);
  });
  LocalDriver driver = fixture.driver(stub.url());
  auto result = driver.render("Hello.", "local", "default", fixture.audio());
  EXPECT_NEAR(result.duration, 1.5, 0.06);
  EXPECT_EQ(result.usedVoice, "default");
  EXPECT_EQ(test::readFile(fixture.audio()).substr(0, 4), "RIFF");
  EXPECT_EQ(fixture.leftovers(), (std::vector<std::string>{"line.wav"}));
  // The character "local" sends no model; "default" sends no voice.
  EXPECT_EQ(bodies(stub), (std::vector<json>{{{"input", "Hello."}, {"response_format", "wav"}}, {{"input", "Hello."}}}));
}

// What the stub answers. The test sets it while the stub's thread may still be
// sending the last answer (a client that refuses early does not wait for it).
namespace {
template <class T>
class Shared {
 public:
  explicit Shared(T value = T()) : value_(std::move(value)) {}
  void operator=(T value) {
    std::lock_guard guard(lock_);
    value_ = std::move(value);
  }
  T get() const {
    std::lock_guard guard(lock_);
    return value_;
  }

 private:
  mutable std::mutex lock_;
  T value_;
};
}  // namespace

TEST(LocalDriverRender, RefusalsCarryWhatTheServerSaid) {
  Fixture fixture;
  Shared<std::string> reply;
  Shared<int> status(400);
  auto stub = speechStub(
      [&](const json&, StubConnection& connection) { connection.respond(status.get(), "text/html", reply.get()); });
  LocalDriver driver = fixture.driver(stub.url(), "sk-2");
  const std::string prefix = "The server at " + stub.url() + " could not render this line (HTTP ";
  auto attempt = [&] { return test::refusal([&] { driver.render("Hi.", "m", "v", fixture.audio()); }); };

  reply = R"({"error":{"message":"no such voice"}})";
  EXPECT_EQ(attempt(), prefix + "400): no such voice");
  EXPECT_EQ(stub.requests().size(), 2u);  // the plain retry, and no third ask
  EXPECT_EQ(bodies(stub)[1], (json{{"input", "Hi."}, {"model", "m"}, {"voice", "v"}}));
  EXPECT_EQ(stub.requests()[1].headers.at("authorization"), "Bearer sk-2");

  status = 500;
  reply = "  <html>" + std::string(300, 'x') + "</html>";
  EXPECT_EQ(attempt(), prefix + "500): <html>" + std::string(192, 'x'));
  status = 503;
  reply = "";
  EXPECT_EQ(attempt(), prefix + "503)");
  status = 403;
  EXPECT_EQ(attempt(), "The server at " + stub.url() + " refused the API key (HTTP 403).");
  EXPECT_TRUE(fixture.leftovers().empty());
}

TEST(LocalDriverRender, NoSoundLeavesThePreviousAudioAndNoPartialFile) {
  Fixture fixture;
  Shared<std::string> reply;
  auto stub = speechStub([&](const json&, StubConnection& connection) { connection.respond(200, "audio/wav", reply.get()); });
  LocalDriver driver = fixture.driver(stub.url());
  test::writeFile(fixture.audio(), "the line's previous audio");
  const std::string silent = "The server at " + stub.url() + " returned no audio.";
  for (std::string body : {std::string(), std::string("<!doctype html><p>Welcome</p>"), wavOf(0)}) {
    reply = body;
    EXPECT_EQ(test::refusal([&] { driver.render("Hi.", "m", "v", fixture.audio()); }), silent);
    EXPECT_EQ(test::readFile(fixture.audio()), "the line's previous audio");
    EXPECT_EQ(fixture.leftovers(), (std::vector<std::string>{"line.wav"}));
  }
  reply = wavOf(8000);
  EXPECT_EQ(driver.render("Hi.", "m", "v", fixture.audio()).duration, 1.0);
}

TEST(LocalDriverRender, HangsTruncationsAndFloodsStopWithinTheirLimits) {
  Fixture fixture;
  std::string mode;
  auto stub = speechStub([&](const json&, StubConnection& connection) {
    if (mode == "hang") return connection.hang();
    if (mode == "truncate") {
      connection.send("HTTP/1.1 200 OK\r\nContent-Type: audio/wav\r\nContent-Length: 100000\r\n\r\n");
      connection.send(wavOf(8000).substr(0, 5000));
      return;  // and close
    }
    connection.send("HTTP/1.1 200 OK\r\nContent-Type: audio/wav\r\nContent-Length: 2147483648\r\n\r\n");
    std::string chunk(64 * 1024, 'R');
    while (connection.send(chunk)) {
    }
  });
  test::writeFile(fixture.audio(), "previous");
  const std::string unreachable = "Nothing answered at " + stub.url() + ". Start your TTS server or change its address.";
  auto timed = [&](LocalDriver& driver) {
    auto began = std::chrono::steady_clock::now();
    std::string said = test::refusal([&] { driver.render("Hi.", "m", "v", fixture.audio()); });
    return std::make_pair(said, std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
  };

  mode = "hang";
  LocalDriver patient = fixture.driver(stub.url(), std::nullopt, 0.5);
  auto [hung, hungFor] = timed(patient);
  EXPECT_EQ(hung, unreachable);
  EXPECT_LT(hungFor, 3.0);

  mode = "truncate";
  EXPECT_EQ(timed(patient).first, unreachable);

  mode = "flood";
  LocalDriver capped = fixture.driver(stub.url(), std::nullopt, 30, 4u << 20);
  auto [flooded, floodedFor] = timed(capped);
  EXPECT_EQ(flooded, "The server at " + stub.url() + " could not render this line (HTTP 200): its answer ran past 4 MB, which is no line");
  EXPECT_LT(floodedFor, 10.0);
  EXPECT_EQ(test::readFile(fixture.audio()), "previous");
  EXPECT_EQ(fixture.leftovers(), (std::vector<std::string>{"line.wav"}));
}

TEST(LocalDriverRecord, UseSavesAndForgetsTheListing) {
  Fixture fixture;
  StubHttpServer first(routes({{"/health", {200, "{}"}}}));
  StubHttpServer second(routes({{"/v1/models", {200, R"({"data":[{"id":"tts"}]})"}}}));
  LocalDriver driver = fixture.driver(first.url());
  EXPECT_EQ(driver.characters().at(0).id, "local");
  driver.use(LocalServer{second.url(), std::nullopt});
  EXPECT_EQ(driver.server().url, second.url());
  EXPECT_EQ(driver.characters().at(0).id, "tts");
  EXPECT_EQ(driver.health().source, second.url());
}

}  // namespace
}  // namespace tavorin
