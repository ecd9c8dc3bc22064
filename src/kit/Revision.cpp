#include "kit/Revision.hpp"

#include <nlohmann/json.hpp>


namespace tavorin {

ReviseError ReviseError::wrongProduction(const std::string& got, const std::string& want) {
  return ReviseError("the reply is for '" + got + "', not '" + want + "' — nothing was changed");
}
ReviseError ReviseError::launchFailed(const std::string& text) { return ReviseError("couldn't start claude: " + text); }
ReviseError ReviseError::busy() { return ReviseError("a revision is already running"); }
ReviseError ReviseError::noInstruction() { return ReviseError("say what should change"); }
ReviseError ReviseError::noClaude(const std::string& path) {
  return ReviseError("claude isn't where Tavorin expects it (" + path + ")");
}
ReviseError ReviseError::notJSON() { return ReviseError("the reply wasn't JSON, so nothing was changed"); }
ReviseError ReviseError::notARecording() {
  return ReviseError("the reply was JSON but not a recording, so nothing was changed");
}

namespace Revision {

std::string prompt(const Recording& recording, std::string_view instruction) {
  std::string p = "You are revising a Tavorin production. Here is the current version, as JSON:\n\n";
  p += recording.encoded();
  p += "\n\nThe change asked for is:\n\n";
  p += instruction;
  p +=
      "\n\nReply with the COMPLETE revised recording JSON and nothing else — no prose, no code fence, no "
      "commentary. Keep the same \"id\". Keep `character` and `voice` null on any line that should inherit the "
      "production default; never write a resolved value back. Do not invent `audio` paths — leave a changed "
      "line's audio as it is and let the app notice it is stale.";
  return p;
}

std::vector<std::string> arguments(const std::string& prompt) { return {"-p", prompt, "--output-format", "text"}; }

Recording parse(std::string_view reply, const std::string& expectedId) {
  const size_t first = reply.find('{');
  const size_t last = reply.rfind('}');
  if (first == std::string_view::npos || last == std::string_view::npos || last < first) throw ReviseError::notJSON();
  const std::string_view slice = reply.substr(first, last - first + 1);
  if (!nlohmann::json::accept(slice.begin(), slice.end())) throw ReviseError::notJSON();
  Recording revised;
  try {
    revised = Recording::decode(slice);
  } catch (const std::exception&) {
    throw ReviseError::notARecording();
  }
  if (revised.id != expectedId) throw ReviseError::wrongProduction(revised.id, expectedId);
  return revised;
}

}  // namespace Revision

}  // namespace tavorin
