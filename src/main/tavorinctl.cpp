#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "operator/BuildStamp.hpp"
#include "operator/OperatorClient.hpp"
#include "operator/OperatorManifest.hpp"

// tavorinctl <verb> key=value ...
// Exit status: 0 when the verb answered ok, 1 when the studio refused it,
// 2 for a client failure or bad usage (a stale studio included).
namespace {

using namespace tavorin;

constexpr const char* usage =
    "usage: tavorinctl <verb> [key=value ...]\n"
    "       tavorinctl verbs [--json]\n"
    "       tavorinctl help <verb>\n"
    "\n"
    "Drives the running Tavorin studio over its local control socket.\n"
    "Every value is sent as text; key= with nothing after it sends an empty value,\n"
    "which counts as leaving the argument out.\n"
    "\n"
    "  tavorinctl verbs       every verb, by group, with its parameters (? = optional)\n"
    "  tavorinctl help nav    what a verb does and what each parameter means\n"
    "  tavorinctl ping        is the studio answering?\n"
    "  tavorinctl status      the open production, the page, what plays\n"
    "  tavorinctl quit        ends the studio\n";

// Seconds a studio's build may trail the sources before it counts as stale: the
// build date it reports is cut to whole seconds.
constexpr double staleTolerance = 2.0;

std::string signature(const VerbSpec& verb) {
  std::string line = verb.name;
  for (const auto& p : verb.params) line += " " + p.name + (p.required ? "" : "?");
  return line;
}

int printVerbs(bool json) {
  if (json) {
    std::cout << OperatorManifest::toJSON().pretty() << "\n";
    return 0;
  }
  bool first = true;
  for (const auto& group : OperatorManifest::groups()) {
    if (!first) std::cout << "\n";
    first = false;
    std::cout << group << "\n";
    for (const auto& verb : OperatorManifest::verbs())
      if (verb.group == group) std::cout << "  " << signature(verb) << "\n";
  }
  return 0;
}

// Counts code points, not bytes, so that dashes and arrows do not cut lines short.
std::size_t width(std::string_view text) {
  std::size_t n = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

// Breaks text into lines of at most `columns`, each prefixed by `indent`.
std::string wrap(std::string_view text, std::size_t columns, const std::string& indent) {
  std::string out, line;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t space = text.find(' ', start);
    if (space == std::string_view::npos) space = text.size();
    const std::string_view word = text.substr(start, space - start);
    if (!line.empty() && width(indent) + width(line) + 1 + width(word) > columns) {
      out += indent + line + "\n";
      line.clear();
    }
    if (!line.empty()) line += ' ';
    line += word;
    start = space + 1;
  }
  if (!line.empty()) out += indent + line + "\n";
  return out;
}

int printHelp(const std::string& name) {
  const VerbSpec* verb = OperatorManifest::find(name);
  if (!verb) {
    std::cerr << "no verb '" << name << "'. Try: tavorinctl verbs\n";
    return 2;
  }
  std::string line = "tavorinctl " + verb->name;
  for (const auto& p : verb->params)
    line += p.required ? " " + p.name + "=…" : " [" + p.name + "=…]";
  std::cout << line << "\n"
            << "  in " << verb->group << (verb->mutating ? "" : ", reports only") << "\n\n"
            << wrap(verb->summary, 80, "");
  if (!verb->params.empty()) std::cout << "\n";
  for (const auto& p : verb->params) {
    std::cout << "  " << p.name << (p.required ? "" : " (optional)") << "\n" << wrap(p.description, 80, "      ");
  }
  return 0;
}

// The studio must not be older than the checkout this client was built from: a
// stale window answers verbs the way old sources did, which reads as a bug in the
// new ones. Nothing to say for a client outside a checkout, or for a studio that
// will not answer `status`.
std::optional<std::string> staleRefusal(const OperatorClient& client, const std::string& verb) {
  if (BuildStamp::passesStaleBuild(verb)) return std::nullopt;
  const auto root = BuildStamp::checkoutRoot(BuildStamp::currentExecutable());
  if (!root) return std::nullopt;
  const OperatorResult status = client.send(OperatorCommand{"status", {}});
  if (!status.ok || !status.data) return std::nullopt;
  const auto built = BuildStamp::reportedBuildDate(*status.data);
  const auto verdict = BuildStamp::verdict(built, BuildStamp::newestSourceChange(*root), staleTolerance);
  if (verdict.kind != BuildStamp::Verdict::Kind::stale) return std::nullopt;
  return BuildStamp::refusal(*verdict.change, built, *root);
}

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
  if (first == "verbs") {
    const bool json = argc == 3 && std::string_view(argv[2]) == "--json";
    if (argc > 3 || (argc == 3 && !json)) {
      std::fputs(usage, stderr);
      return 2;
    }
    return printVerbs(json);
  }
  if (first == "help") {
    if (argc != 3) {
      std::fputs(usage, stderr);
      return 2;
    }
    return printHelp(argv[2]);
  }

  OperatorCommand command;
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
    const auto client = OperatorClient::fromControlFile();
    if (const auto refusal = staleRefusal(client, command.verb)) {
      std::cerr << *refusal << "\n";
      return 2;
    }
    const OperatorResult result = client.send(command);
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
