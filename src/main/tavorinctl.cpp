#include <cstdio>
#include <iostream>
#include <string>

#include "operator/OperatorClient.hpp"

// tavorinctl <verb> key=value ...
// Exit status: 0 when the verb answered ok, 1 when the studio refused it,
// 2 for a client failure or bad usage.
namespace {

constexpr const char* usage =
    "usage: tavorinctl <verb> [key=value ...]\n"
    "\n"
    "Drives the running Tavorin studio over its local control socket.\n"
    "Every value is sent as text; key= with nothing after it sends an empty value,\n"
    "which counts as leaving the argument out.\n"
    "\n"
    "  tavorinctl ping        is the studio answering?\n"
    "  tavorinctl status      the open production, the page, what plays\n"
    "  tavorinctl quit        ends the studio\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(usage, stderr);
    return 2;
  }
  const std::string first = argv[1];
  if (first == "--help" || first == "-h") {
    std::fputs(usage, stdout);
    return 0;
  }

  tavorin::OperatorCommand command;
  command.verb = first;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    const auto eq = arg.find('=');
    if (eq == std::string::npos || eq == 0) {
      std::fprintf(stderr, "tavorinctl: '%s' is not key=value\n", arg.c_str());
      return 2;
    }
    command.args[arg.substr(0, eq)] = arg.substr(eq + 1);
  }

  try {
    const auto client = tavorin::OperatorClient::fromControlFile();
    const tavorin::OperatorResult result = client.send(command);
    if (!result.ok) {
      std::cerr << result.error.value_or("refused") << "\n";
      return 1;
    }
    if (result.data) std::cout << result.data->pretty() << "\n";
    return 0;
  } catch (const std::exception& e) {
    std::cerr << e.what() << "\n";
    return 2;
  }
}
