#pragma once
#include <gtest/gtest.h>

#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/use_future.hpp>
#include <chrono>
#include <map>
#include <string>

#include "TestSupport.hpp"
#include "app/model/AppStore.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/model/Scope.hpp"
#include "app/service/OperatorService.hpp"
#include "kit/Pasteboard.hpp"
#include "platform/FreedesktopTrash.hpp"

namespace tavorin::test {

// The operator's service over a studio in a temporary home, its model on a manual
// actor: what a verb sends off the actor runs when the rig drains it.
class ServiceRig : public ::testing::Test {
 protected:
  ServiceRig()
      : support("TAVORIN_SUPPORT", (tmp / "support").string()),
        model(actor, SessionStore(tmp / "support/session.json"), pasteboard),
        store(model, Library(tmp / "root"), SessionStore(tmp / "support/session.json"), trash),
        service(store, [this] { ++quits; }) {
    Scope::resetForTesting();
  }

  // Runs the verb to its answer, letting offloaded work and the main actor take turns
  // as the worker pool and the actor would.
  OperatorResult call(const std::string& verb, std::map<std::string, std::string> args = {}) {
    asio::io_context context;
    auto future = asio::co_spawn(context, service.handle(OperatorCommand{verb, std::move(args)}), asio::use_future);
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    for (;;) {
      context.restart();
      context.run_for(std::chrono::milliseconds(1));
      actor.drain();  // the turn ends
      if (future.wait_for(std::chrono::seconds(0)) == std::future_status::ready) break;
      if (std::chrono::steady_clock::now() > limit) {
        ADD_FAILURE() << verb << " never answered";
        return OperatorResult::failure("never answered");
      }
    }
    return future.get();
  }
  JSONValue data(const std::string& verb, std::map<std::string, std::string> args = {}) {
    const auto r = call(verb, std::move(args));
    EXPECT_TRUE(r.ok) << verb << ": " << r.error.value_or("");
    return r.data.value_or(JSONValue());
  }
  std::string error(const std::string& verb, std::map<std::string, std::string> args = {}) {
    const auto r = call(verb, std::move(args));
    EXPECT_FALSE(r.ok) << verb << " answered " << (r.data ? r.data->encode() : "nothing");
    return r.error.value_or("");
  }
  // A project "Films" with a new production "Sample" open, holding `lines` lines of
  // "Line <n>." that start `spacing` seconds apart and hold `hold` seconds each.
  void openSample(int lines = 0, double spacing = 1.0, double hold = 0.5) {
    data("project.create", {{"name", "Films"}});
    data("recording.new", {{"title", "Sample"}});
    if (lines == 0) return;
    Recording rec = model.recording();
    for (int i = 1; i <= lines; ++i) {
      TimelineItem line("l" + std::to_string(i), ItemType::line);
      line.text = "Line " + std::to_string(i) + ".";
      line.start = i * spacing;
      line.hold = hold;
      rec.timeline.push_back(line);
    }
    model.setRecording(rec);
    actor.drain();
  }

  TempDir tmp;
  ScopedEnv support;
  ManualMainActor actor;
  MemoryPasteboard pasteboard;
  FreedesktopTrash trash{tmp / "Trash"};
  AppModel model;
  AppStore store;
  OperatorService service;
  int quits = 0;
};

}  // namespace tavorin::test
