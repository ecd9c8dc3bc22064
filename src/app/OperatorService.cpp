#include "app/OperatorService.hpp"

#include <sys/stat.h>

#include <asio/this_coro.hpp>
#include <chrono>
#include <ctime>

#include "app/AppStore.hpp"
#include "operator/BuildStamp.hpp"

namespace tavorin {

namespace fs = std::filesystem;

OperatorService::OperatorService(AppStore& store, std::function<void()> terminate)
    : store_(store), terminate_(std::move(terminate)) {}

namespace {
std::string isoDate(std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}
}  // namespace

JSONValue OperatorService::buildReport() const {
  const fs::path exe = BuildStamp::currentExecutable();
  JSONValue modified;
  struct stat st {};
  if (!exe.empty() && ::stat(exe.c_str(), &st) == 0) modified = JSONValue(isoDate(st.st_mtime));
  const bool bundled = exe.empty() || !BuildStamp::checkoutRoot(exe).has_value();
  return JSONValue::object({{"version", TAVORIN_VERSION}, {"modified", modified}, {"bundled", bundled}});
}

JSONValue OperatorService::status() const {
  // Subsystems not in this build carry their honest present value: nothing rolls,
  // nothing plays, no sheet stands over the page.
  return JSONValue::object({
      {"version", TAVORIN_VERSION},
      {"route", word(store_.route().page)},
      {"surface", JSONValue()},
      {"rolling", false},
      {"playing", false},
      {"transport", JSONValue::object({{"playing", false}, {"playhead", JSONValue::seconds(0)}})},
      {"playhead", JSONValue::seconds(0)},
      {"permissionsSheet", false},
      {"build", buildReport()},
      {"exportSheet", store_.showingExportSheet},
      {"exportSheetArmed", false},
      {"versionMenu", store_.showingVersionMenu},
      {"viewer", JSONValue()},
      {"production", JSONValue()},
  });
}

asio::awaitable<OperatorResult> OperatorService::handle(OperatorCommand command) {
  const std::string& verb = command.verb;
  try {
    if (verb == "ping") co_return OperatorResult::success(JSONValue::object({{"pong", true}}));
    if (verb == "status") co_return OperatorResult::success(status());
    if (verb == "where") co_return OperatorResult::success(JSONValue::object({{"where", word(store_.route().page)}}));
    if (verb == "quit") {
      store_.production().note("quit requested by the operator");
      // The answer goes out first; the process ends a moment later.
      terminate_();
      co_return OperatorResult::success(JSONValue::object({{"quitting", true}}));
    }
    co_return OperatorResult::failure("unknown verb '" + verb + "'. Try: tavorinctl verbs");
  } catch (const std::exception& e) {
    co_return OperatorResult::failure(e.what());
  }
}

}  // namespace tavorin
