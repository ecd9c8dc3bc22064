#include "voice/speechserver/SpeechServer.hpp"

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "voice/speechserver/EspeakSpeaker.hpp"
#include "voice/speechserver/SpeechRequest.hpp"

namespace tavorin {

using nlohmann::json;

namespace {

// A speech request is a few kilobytes of JSON; anything much larger is refused unread.
constexpr size_t bodyLimit = 64 * 1024;
// espeak-ng speaks one request at a time, so more workers would only queue.
constexpr size_t workers = 2;

void answerError(httplib::Response& response, int status, const std::string& message,
                 const char* type = "invalid_request_error") {
  response.status = status;
  response.set_content(json{{"error", {{"message", message}, {"type", type}}}}.dump(), "application/json");
}

void put16(std::string& out, uint16_t v) {
  out += static_cast<char>(v & 0xff);
  out += static_cast<char>(v >> 8);
}
void put32(std::string& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xff);
}

std::string littleEndian(const std::vector<int16_t>& samples) {
  std::string out;
  out.reserve(samples.size() * 2);
  for (int16_t s : samples) put16(out, static_cast<uint16_t>(s));
  return out;
}

}  // namespace

struct SpeechServer::Impl {
  explicit Impl(EspeakSpeaker& speaker) : speaker(speaker) {}
  EspeakSpeaker& speaker;
  httplib::Server http;

  json voiceList() const {
    json voices = json::array();
    for (const auto& voice : speaker.voices()) voices.push_back({{"id", voice.id}, {"name", voice.name}});
    return voices;
  }

  void speech(const httplib::Request& request, httplib::Response& response) {
    SpeechRequest asked;
    try {
      asked = SpeechRequest::decode(request.body);
    } catch (const SpeechRequestError& error) {
      return answerError(response, 400, error.what());
    }
    if (asked.model && *asked.model != model)
      return answerError(response, 400, "No model called " + *asked.model + ". This server offers " +
                                            std::string(model) + ".");
    std::string voice = asked.voice.value_or(speaker.defaultVoice());
    if (!speaker.voice(voice))
      return answerError(response, 400, "No voice called " + voice + ". See GET /v1/audio/voices.");
    std::vector<int16_t> samples;
    try {
      samples = speaker.speak(asked.input, voice, asked.speed);
    } catch (const std::exception& error) {
      return answerError(response, 500, error.what(), "server_error");
    }
    if (asked.format == SpeechRequest::Format::pcm) {
      response.set_header("X-Sample-Rate", std::to_string(speaker.sampleRate()));
      response.set_content(littleEndian(samples), "audio/pcm");
    } else {
      response.set_content(wav(samples, speaker.sampleRate()), "audio/wav");
    }
  }
};

SpeechServer::SpeechServer(EspeakSpeaker& speaker) : impl_(std::make_unique<Impl>(speaker)) {
  auto& http = impl_->http;
  http.new_task_queue = [] { return new httplib::ThreadPool(workers); };
  http.set_payload_max_length(bodyLimit);
  http.set_read_timeout(10, 0);
  http.set_write_timeout(10, 0);
  http.set_keep_alive_max_count(16);

  http.Get("/health", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(R"({"status":"ok"})", "application/json");
  });
  http.Get("/v1/models", [](const httplib::Request&, httplib::Response& response) {
    json data = json::array({{{"id", model}, {"object", "model"}, {"created", 0}, {"owned_by", "tavorin"}}});
    response.set_content(json{{"object", "list"}, {"data", data}}.dump(), "application/json");
  });
  http.Get("/v1/audio/voices", [this](const httplib::Request& request, httplib::Response& response) {
    if (request.has_param("model") && request.get_param_value("model") != model)
      return answerError(response, 404, "No model called " + request.get_param_value("model") + ".");
    response.set_content(json{{"voices", impl_->voiceList()}}.dump(), "application/json");
  });
  http.Post("/v1/audio/speech",
            [this](const httplib::Request& request, httplib::Response& response) { impl_->speech(request, response); });
  http.set_error_handler([](const httplib::Request& request, httplib::Response& response) {
    if (!response.body.empty()) return;
    if (response.status == 413)
      answerError(response, 413, "The request body is larger than " + std::to_string(bodyLimit) + " bytes.");
    else if (response.status == 404)
      answerError(response, 404, "Nothing here at " + request.path + ". This server answers /v1/models, "
                                 "/v1/audio/voices, /v1/audio/speech and /health.");
    else
      answerError(response, response.status, "The request could not be served.");
  });
  http.set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
    answerError(response, 500, "The server failed while answering.", "server_error");
  });
}

SpeechServer::~SpeechServer() { stop(); }

int SpeechServer::bind(int port) {
  int bound = port == 0 ? impl_->http.bind_to_any_port("127.0.0.1")
                        : (impl_->http.bind_to_port("127.0.0.1", port) ? port : -1);
  if (bound <= 0)
    throw std::runtime_error("tavorin-speech could not listen on 127.0.0.1:" + std::to_string(port) +
                             "; is something else using that port?");
  return bound;
}

void SpeechServer::serve() { impl_->http.listen_after_bind(); }

void SpeechServer::stop() {
  if (impl_) impl_->http.stop();
}

std::string SpeechServer::wav(const std::vector<int16_t>& samples, int rate) {
  const uint32_t dataBytes = static_cast<uint32_t>(samples.size() * 2);
  std::string out = "RIFF";
  put32(out, 36 + dataBytes);
  out += "WAVEfmt ";
  put32(out, 16);
  put16(out, 1);  // PCM
  put16(out, 1);  // mono
  put32(out, static_cast<uint32_t>(rate));
  put32(out, static_cast<uint32_t>(rate * 2));
  put16(out, 2);
  put16(out, 16);
  out += "data";
  put32(out, dataBytes);
  return out + littleEndian(samples);
}

}  // namespace tavorin
