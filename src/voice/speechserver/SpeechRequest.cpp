#include "voice/speechserver/SpeechRequest.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace tavorin {

using nlohmann::json;

namespace {

// Deeper than any request and shallow enough that nothing recurses far.
constexpr int depthLimit = 16;

json parse(std::string_view body) {
  bool tooDeep = false;
  json::parser_callback_t guard = [&](int level, json::parse_event_t event, json&) {
    if (event == json::parse_event_t::object_start || event == json::parse_event_t::array_start) {
      if (level >= depthLimit) tooDeep = true;
    }
    return !tooDeep;
  };
  json out = json::parse(body.begin(), body.end(), guard, false);
  if (tooDeep) throw SpeechRequestError("The request nests deeper than a speech request can.");
  if (out.is_discarded()) throw SpeechRequestError("The request body is not valid JSON.");
  return out;
}

std::optional<std::string> text(const json& body, const char* key) {
  auto found = body.find(key);
  if (found == body.end() || found->is_null()) return std::nullopt;
  if (!found->is_string()) throw SpeechRequestError(std::string("\"") + key + "\" must be a string.");
  return found->get<std::string>();
}

size_t characters(const std::string& text) {
  size_t n = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

bool validUTF8(const std::string& text) {
  size_t i = 0;
  while (i < text.size()) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    size_t length = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + length > text.size()) return false;
    for (size_t k = 1; k < length; ++k)
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    i += length;
  }
  return true;
}

}  // namespace

SpeechRequest SpeechRequest::decode(std::string_view body) {
  json object = parse(body);
  if (!object.is_object()) throw SpeechRequestError("The request body must be a JSON object.");
  SpeechRequest request;
  auto input = text(object, "input");
  if (!input) throw SpeechRequestError("\"input\" is required: the text to speak.");
  if (!validUTF8(*input)) throw SpeechRequestError("\"input\" is not valid UTF-8.");
  auto first = input->find_first_not_of(" \t\r\n");
  if (first == std::string::npos) throw SpeechRequestError("\"input\" holds no words to speak.");
  if (characters(*input) > inputLimit)
    throw SpeechRequestError("\"input\" is longer than " + std::to_string(inputLimit) + " characters.");
  request.input = *input;
  request.model = text(object, "model");
  request.voice = text(object, "voice");
  if (request.voice && request.voice->empty()) request.voice.reset();
  if (auto format = text(object, "response_format")) {
    if (*format == "wav")
      request.format = Format::wav;
    else if (*format == "pcm")
      request.format = Format::pcm;
    else
      throw SpeechRequestError("\"response_format\" " + *format + " is not offered here; ask for wav or pcm.");
  }
  if (auto speed = object.find("speed"); speed != object.end() && !speed->is_null()) {
    if (!speed->is_number()) throw SpeechRequestError("\"speed\" must be a number from 0.25 to 4.");
    double value = speed->get<double>();
    if (!std::isfinite(value) || value < 0.25 || value > 4.0)
      throw SpeechRequestError("\"speed\" must be a number from 0.25 to 4.");
    request.speed = value;
  }
  return request;
}

}  // namespace tavorin
