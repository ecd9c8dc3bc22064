#include <gtest/gtest.h>

#include <chrono>

#include "TestSupport.hpp"
#include "app/model/ManualMainActor.hpp"
#include "app/shoot/FakeAgentStep.hpp"
#include "app/shoot/FakePerformer.hpp"
#include "app/shoot/FakeRecorder.hpp"
#include "app/shoot/Runner.hpp"
#include "app/shoot/Shoot.hpp"
#include "kit/TakesStore.hpp"

using namespace tavorin;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

struct Rig {
  test::TempDir dir;
  ManualMainActor actor;
  FakePerformer performer;
  FakeAgentStep agents{actor};
  Runner runner{actor, actor, performer, agents};
  FakeRecorder camera;
  Shoot shoot{actor, actor, camera, runner};
  Recording rec;
  std::vector<std::string> phases;
  std::vector<int> cues;
  std::optional<Take> finished;
  MainActor::Clock::time_point epoch = actor.now();
  const std::chrono::system_clock::time_point wall = std::chrono::sys_days{std::chrono::year{2026} / 11 / 23};

  Rig() {
    rec.title = "Meet Halden";
    shoot.onChange = [this] {
      const std::string now = Shoot::name(shoot.phase());
      if (phases.empty() || phases.back() != now) phases.push_back(now);
    };
    shoot.onCue = [this](int cue) { cues.push_back(cue); };
    shoot.onFinished = [this](const Take& take) { finished = take; };
    performer.clock = [this] { return since(); };
  }
  double since() const { return std::chrono::duration<double>(actor.now() - epoch).count(); }
  Take start(const std::string& script, bool free = false) {
    Take take = shoot.start(script, rec, dir.path(), "v3", free, wall);
    actor.drain();
    return take;
  }
  void play(std::chrono::milliseconds total) {
    for (auto left = total; left > 0ms; left -= 10ms) actor.advance(10ms);
  }
  void playToIdle() {
    for (int i = 0; i < 100000 && shoot.isRolling(); ++i) actor.advance(10ms);
  }
  std::optional<Take> onDisk(const Take& take) const { return TakesStore(dir.path()).take(take.id); }
};

}  // namespace

TEST(Shoot, ATakeGoesThroughEveryPhaseWithItsPadsOnTheClock) {
  Rig rig;
  const Take take = rig.start("wait 2\nkey cmd+s");
  EXPECT_EQ(take.status, Take::Status::rolling);
  EXPECT_EQ(take.fromVersion, "v3");
  EXPECT_EQ(take.pads, Take::Pads(1.5, 1.0));
  EXPECT_EQ(take.id.rfind("20261123-000000", 0), 0u) << take.id;
  EXPECT_DOUBLE_EQ(rig.shoot.plannedSeconds(), 2);
  // Nothing is written while counting down.
  EXPECT_FALSE(rig.onDisk(take));
  EXPECT_EQ(rig.shoot.report(), "rolling — counting 3");
  rig.play(2990ms);
  EXPECT_EQ(rig.shoot.phase(), Shoot::Phase::counting);
  EXPECT_TRUE(rig.camera.calls().empty());
  rig.play(20ms);
  // The camera rolled and the record says so before the performance.
  EXPECT_EQ(rig.camera.calls(), std::vector<std::string>{"roll take.mp4"});
  EXPECT_EQ(rig.onDisk(take)->status, Take::Status::rolling);
  EXPECT_TRUE(rig.shoot.isFilming());
  EXPECT_EQ(rig.cues, std::vector<int>{3});
  const double filming = rig.since();
  rig.play(1480ms);
  EXPECT_EQ(rig.shoot.phase(), Shoot::Phase::slate);
  rig.play(30ms);
  EXPECT_EQ(rig.shoot.phase(), Shoot::Phase::performing);
  rig.playToIdle();
  EXPECT_EQ(rig.phases, (std::vector<std::string>{"counting", "slate", "performing", "tail", "finalizing", "idle"}));
  // The key came two seconds into the performance, after the slate pad.
  ASSERT_EQ(rig.performer.calls().size(), 1u);
  EXPECT_NEAR(rig.performer.calls()[0].at - filming, 1.5 + 2, 0.1);
  ASSERT_TRUE(rig.finished);
  EXPECT_EQ(rig.finished->status, Take::Status::complete);
  // Timed by the clock when the camera keeps no frame times: slate, plan and tail.
  EXPECT_NEAR(rig.finished->seconds, 1.5 + 2 + 1, 0.15);
  EXPECT_EQ(*rig.onDisk(take), *rig.finished);
  EXPECT_EQ(rig.cues, (std::vector<int>{3, 4}));
  EXPECT_EQ(rig.shoot.report(), "not rolling");
}

TEST(Shoot, AScriptShorterThanItsPlanRollsForThePlan) {
  Rig rig;
  TimelineItem line("l1", ItemType::line);
  line.text = "A line that lasts.";
  line.start = 0;
  line.duration = 6;
  rig.rec.timeline.push_back(line);
  rig.camera.span.seconds = 8.25;  // the frames' own times win over the clock
  rig.start("key cmd+s");
  const double planned = rig.shoot.plannedSeconds();
  ASSERT_GT(planned, 5);
  rig.play(3000ms + 1500ms + 100ms);
  ASSERT_EQ(rig.shoot.phase(), Shoot::Phase::performing);
  const double performing = rig.since();
  while (rig.shoot.phase() == Shoot::Phase::performing) rig.actor.advance(10ms);
  EXPECT_NEAR(rig.since() - performing, planned, 0.1);
  EXPECT_EQ(rig.shoot.phase(), Shoot::Phase::tail);
  rig.playToIdle();
  EXPECT_DOUBLE_EQ(rig.finished->seconds, 8.25);
}

TEST(Shoot, ACutInEachPhase) {
  {  // Counting: no take, no file, the camera never rolled.
    Rig rig;
    const Take take = rig.start("wait 1");
    rig.play(1500ms);
    rig.shoot.cut();
    rig.play(5000ms);
    EXPECT_FALSE(rig.shoot.isRolling());
    EXPECT_TRUE(rig.camera.calls().empty());
    EXPECT_FALSE(fs::exists(TakesStore(rig.dir.path()).url(take)));
    EXPECT_FALSE(rig.finished);
    EXPECT_EQ(*rig.shoot.failure(), "cancelled before the camera rolled");
  }
  for (auto at : {3100ms, 5000ms}) {  // the slate, then mid-performance
    Rig rig;
    const Take take = rig.start("wait 5\nkey cmd+s");
    rig.play(at);
    rig.shoot.cut();
    rig.playToIdle();
    ASSERT_TRUE(rig.finished);
    EXPECT_EQ(rig.finished->status, Take::Status::aborted);
    EXPECT_EQ(rig.onDisk(take)->status, Take::Status::aborted);
    EXPECT_EQ(rig.camera.calls().back(), "cut");
    EXPECT_TRUE(rig.performer.calls().empty()) << "the key after the wait was never pressed";
    EXPECT_TRUE(rig.runner.aborted() || at < 4500ms);
  }
  {  // The tail: the take is cut short of its pad, as aborted.
    Rig rig;
    rig.start("key cmd+s");
    while (rig.shoot.phase() != Shoot::Phase::tail) rig.actor.advance(10ms);
    rig.shoot.cut();
    rig.playToIdle();
    EXPECT_EQ(rig.finished->status, Take::Status::aborted);
    rig.shoot.cut();  // idle: nothing happens
    EXPECT_FALSE(rig.shoot.isRolling());
  }
}

TEST(Shoot, FailuresEndTheTakeWithTheirWordsOnDisk) {
  {  // The camera would not start: a failed take, nothing filmed.
    Rig rig;
    rig.camera.rollFailure = RecordError::noWindow("chromium");
    const Take take = rig.start("key cmd+s");
    rig.playToIdle();
    EXPECT_EQ(*rig.shoot.failure(), "'chromium' is running but has no window open to film.");
    EXPECT_EQ(rig.onDisk(take)->status, Take::Status::failed);
    EXPECT_EQ(rig.shoot.report(), "take " + take.id + " failed to roll: " + *rig.shoot.failure());
    EXPECT_TRUE(rig.performer.calls().empty());
  }
  {  // The performance failed: the runner's words become the take's.
    Rig rig;
    rig.performer.failures["key"] = "the keyboard is gone";
    rig.start("key cmd+s\nwait 3");
    rig.playToIdle();
    EXPECT_EQ(rig.finished->status, Take::Status::failed);
    EXPECT_NE(rig.shoot.failure()->find("the keyboard is gone"), std::string::npos) << *rig.shoot.failure();
  }
  {  // The window went away mid-take.
    Rig rig;
    const Take take = rig.start("wait 10");
    rig.play(5000ms);
    rig.camera.lost = "the filmed window or display went away";
    rig.playToIdle();
    EXPECT_EQ(rig.onDisk(take)->status, Take::Status::failed);
    EXPECT_EQ(*rig.shoot.failure(), "The camera stopped: the filmed window or display went away");
    EXPECT_FALSE(rig.runner.isRunning());
  }
  {  // The file could not be finished.
    Rig rig;
    rig.camera.cutFailure = "No space left on device";
    rig.start("key cmd+s");
    rig.playToIdle();
    EXPECT_EQ(rig.finished->status, Take::Status::failed);
    EXPECT_EQ(*rig.shoot.failure(), "The camera stopped: No space left on device");
  }
}

TEST(Shoot, AFreeTakeRollsUntilCutAndOneTakeAtATime) {
  Rig rig;
  rig.start("", true);
  EXPECT_DOUBLE_EQ(rig.shoot.plannedSeconds(), 0);
  EXPECT_THROW(rig.shoot.start("", rig.rec, rig.dir.path(), "v3", true, rig.wall), std::runtime_error);
  rig.play(60000ms);
  EXPECT_EQ(rig.shoot.phase(), Shoot::Phase::performing);
  EXPECT_GE(rig.shoot.tick(), 59);
  rig.shoot.cut();
  rig.playToIdle();
  EXPECT_EQ(rig.finished->status, Take::Status::aborted);
  EXPECT_NEAR(rig.finished->seconds, 57, 0.2);
}
