#pragma once
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// A revision refused or failed; what() is the sentence the user reads.
struct ReviseError : std::runtime_error {
  using std::runtime_error::runtime_error;
  static ReviseError wrongProduction(const std::string& got, const std::string& want);
  static ReviseError launchFailed(const std::string& text);
  static ReviseError busy();
  static ReviseError noInstruction();
  static ReviseError noClaude(const std::string& path);
  static ReviseError notJSON();
  static ReviseError notARecording();
};

// What is put to `claude` to revise a production, and how its reply is judged.
namespace Revision {

// The whole request: the production as JSON, the change asked for, and the rules
// of the reply.
std::string prompt(const Recording& recording, std::string_view instruction);
// The command line after the program's name; the prompt is one argument, never shell text.
std::vector<std::string> arguments(const std::string& prompt);
// The reply as a production of the same id. Words around the object (a fence, a
// greeting) are tolerated; anything that is not that production throws ReviseError.
Recording parse(std::string_view reply, const std::string& expectedId);

}  // namespace Revision

}  // namespace tavorin
