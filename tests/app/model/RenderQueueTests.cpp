#include <gtest/gtest.h>

#include <deque>

#include "app/model/ManualMainActor.hpp"
#include "app/model/RenderQueue.hpp"
#include "app/model/ToastCenter.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using Kind = RenderQueue::State::Kind;

namespace {

// Holds each engine call until the test lets it run, so a test can act while a
// ticket is rendering.
class HeldOffloader final : public Offloader {
 public:
  explicit HeldOffloader(ManualMainActor& actor) : actor_(actor) {}
  void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) override {
    held_.emplace_back(std::move(work), std::move(then));
  }
  std::size_t held() const { return held_.size(); }
  // Runs the oldest call and brings its answer back to the actor.
  void release() {
    auto [work, then] = std::move(held_.front());
    held_.pop_front();
    std::exception_ptr failure;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
    actor_.post([then, failure] { then(failure); });
    actor_.drain();
  }
  void releaseAll() {
    actor_.drain();
    while (!held_.empty()) release();
  }

 private:
  ManualMainActor& actor_;
  std::deque<std::pair<std::function<void()>, std::function<void(std::exception_ptr)>>> held_;
};

// Says what it was asked, in order; fails on the texts it is told to.
class ListeningDriver final : public VoiceDriver {
 public:
  std::string name() const override { return "kokoro"; }
  DriverHealth health() override { return {}; }
  std::vector<DriverCharacter> characters() override { return {}; }
  RenderResult render(const std::string& text, const std::string&, const std::string& voice,
                      const fs::path& to) override {
    heard.push_back(text);
    if (text == failOn) throw std::runtime_error("the engine choked on " + text);
    return {to, text == silentOn ? 0.0 : 1.5, voice};
  }
  std::vector<std::string> heard;
  std::string failOn, silentOn;
};

class Queue : public ::testing::Test {
 protected:
  RenderQueue make() {
    return RenderQueue(
        actor, offloader, &toasts, [this] { return driver; },
        [this](const std::string& ticket) {
          ++asked;
          if (ticket == "refused") return RenderQueue::Plan::refuse("refused has no words to speak");
          return RenderQueue::Plan::go({"say " + ticket, "narrator", "bf", "/tmp/" + ticket + ".wav"});
        },
        [this](const std::string& ticket, const RenderResult& result) { completed.emplace_back(ticket, result); },
        [this](bool failed) { drained.push_back(failed); });
  }

  ManualMainActor actor;
  HeldOffloader offloader{actor};
  ToastCenter toasts{actor};
  std::shared_ptr<ListeningDriver> driver = std::make_shared<ListeningDriver>();
  int asked = 0;
  std::vector<std::pair<std::string, RenderResult>> completed;
  std::vector<bool> drained;
};

}  // namespace

TEST(RenderTickets, LineSampleNameAndReason) {
  EXPECT_EQ(RenderQueue::Ticket::line("l1"), "l1");
  EXPECT_EQ(RenderQueue::Ticket::line("l1#2"), "l1");
  EXPECT_EQ(RenderQueue::Ticket::sample("l1#2"), 2);
  EXPECT_EQ(RenderQueue::Ticket::line("a#b"), "a#b");
  EXPECT_EQ(RenderQueue::Ticket::sample("a#b"), std::nullopt);
  EXPECT_EQ(RenderQueue::Ticket::line("a#2#3"), "a#2");
  EXPECT_EQ(RenderQueue::Ticket::sample("a#2#3"), 3);
  EXPECT_EQ(RenderQueue::Ticket::line("g:0123456789#4"), "g:0123456789");
  EXPECT_EQ(RenderQueue::Ticket::line("audition:7#2"), "audition:7#2");
  EXPECT_EQ(RenderQueue::Ticket::sample("audition:7#2"), std::nullopt);
  EXPECT_EQ(RenderQueue::Ticket::sample("l1#"), std::nullopt);

  EXPECT_EQ(RenderQueue::name({}), "");
  EXPECT_EQ(RenderQueue::name({"l1"}), "l1");
  EXPECT_EQ(RenderQueue::name({"l1", "l2", "l4"}), "l1–l4");

  auto characters = [](const std::string& s) {
    return std::count_if(s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
  };
  const std::string at160(160, 'x');
  EXPECT_EQ(RenderQueue::reason(std::runtime_error(at160)), at160);
  const std::string longer = std::string(150, 'x') + "ééééééééééé";  // 161 characters, some of two bytes
  const std::string cut = RenderQueue::reason(std::runtime_error(longer));
  EXPECT_EQ(characters(cut), 158);
  EXPECT_EQ(cut, std::string(150, 'x') + "ééééééé…");

  EXPECT_EQ(RenderQueue::elapsedWords(0.84), "0.8s");
  EXPECT_EQ(RenderQueue::elapsedWords(125.4), "2m 05s");
}

TEST_F(Queue, RendersInOrderOneAtATimeAndSaysWhenDrained) {
  RenderQueue q = make();
  q.enqueue({"l1", "l2", "l3"});
  q.enqueue({"l2", "l4"});  // l2 waits already
  EXPECT_EQ(q.depth(), 4u);
  EXPECT_EQ(q.state("l4")->kind, Kind::queued);
  EXPECT_EQ(asked, 0);  // the verb that queued answers before any work starts

  actor.drain();
  EXPECT_EQ(q.current(), "l1");
  EXPECT_EQ(q.state("l1")->kind, Kind::rendering);
  EXPECT_EQ(offloader.held(), 1u);  // never a second engine call while one runs
  q.enqueue({"l1"});                // rendering now: not queued twice
  EXPECT_EQ(q.depth(), 4u);

  offloader.releaseAll();
  EXPECT_EQ(driver->heard, (std::vector<std::string>{"say l1", "say l2", "say l3", "say l4"}));
  EXPECT_EQ(q.peakConcurrency(), 1);
  EXPECT_EQ(q.inFlight(), 0);
  EXPECT_EQ(q.depth(), 0u);
  EXPECT_FALSE(q.busy());
  EXPECT_EQ(drained, std::vector<bool>{false});
  ASSERT_EQ(completed.size(), 4u);
  EXPECT_EQ(completed[2].first, "l3");
  EXPECT_EQ(completed[2].second.audioURL, "/tmp/l3.wav");
  for (auto id : {"l1", "l2", "l3", "l4"}) EXPECT_EQ(q.state(id)->kind, Kind::done);

  // Each finished line flashes for 1.6 s and gets a toast.
  EXPECT_TRUE(q.justFinished().count("l4"));
  actor.advance(std::chrono::milliseconds(1700));
  EXPECT_TRUE(q.justFinished().empty());
  EXPECT_EQ(toasts.toasts().front().text, "Voice line l4 finished generating in 0.0s");

  // A second batch starts the worker again.
  q.enqueue({"l5"});
  offloader.releaseAll();
  EXPECT_EQ(drained, (std::vector<bool>{false, false}));
}

TEST_F(Queue, AFailureInTheMiddleOfFiveLeavesTheRestToRender) {
  RenderQueue q = make();
  driver->failOn = "say l3";
  driver->silentOn = "say l4";
  q.enqueue({"l1", "l2", "l3", "l4", "refused", "l5"});
  offloader.releaseAll();
  EXPECT_EQ(driver->heard.size(), 5u);  // the refusal cost no engine call
  EXPECT_EQ(*q.state("l3"), RenderQueue::State::failed("the engine choked on say l3"));
  EXPECT_EQ(*q.state("l4"), RenderQueue::State::failed("the engine answered with no audio"));
  EXPECT_EQ(*q.state("refused"), RenderQueue::State::failed("refused has no words to speak"));
  for (auto id : {"l1", "l2", "l5"}) EXPECT_EQ(q.state(id)->kind, Kind::done);
  ASSERT_EQ(completed.size(), 3u);
  EXPECT_EQ(completed.back().first, "l5");
  EXPECT_EQ(drained, std::vector<bool>{true});

  // Queued again, a failed line shows queued until it renders.
  driver->failOn.clear();
  q.enqueue({"l3"});
  EXPECT_EQ(q.state("l3")->kind, Kind::queued);
  offloader.releaseAll();
  EXPECT_EQ(q.state("l3")->kind, Kind::done);
  EXPECT_EQ(drained, (std::vector<bool>{true, false}));
}

TEST_F(Queue, CancelTakesOutWhatWaitsAndDropsWhatRuns) {
  RenderQueue q = make();
  q.enqueue({"g:abc", "l9", "l9#2", "l7"}, {{"g:abc", {"l1", "l2"}}});
  actor.drain();
  ASSERT_EQ(q.current(), "g:abc");
  EXPECT_EQ(q.state("l2")->kind, Kind::rendering);  // the group speaks for its lines
  EXPECT_TRUE(q.speaksFor("g:abc", "l1"));
  EXPECT_FALSE(q.speaksFor("g:abc", "l9"));

  q.cancel("l9");  // both samples of l9 leave the queue
  EXPECT_EQ(q.pending(), std::deque<std::string>{"l7"});
  EXPECT_FALSE(q.state("l9#2"));
  q.cancel("l2");  // the running group: its result is thrown away when it comes
  EXPECT_EQ(q.current(), "g:abc");
  offloader.releaseAll();
  EXPECT_EQ(driver->heard, (std::vector<std::string>{"say g:abc", "say l7"}));
  ASSERT_EQ(completed.size(), 1u);
  EXPECT_EQ(completed[0].first, "l7");
  EXPECT_FALSE(q.state("g:abc"));
  EXPECT_FALSE(q.state("l1"));

  // Cancelling everything empties the queue; the running one still finishes its call.
  q.enqueue({"a", "b", "c"});
  actor.drain();
  q.cancel();
  EXPECT_EQ(q.depth(), 1u);
  offloader.releaseAll();
  EXPECT_EQ(completed.size(), 1u);
  EXPECT_TRUE(q.states().count("a") == 0 && q.states().count("b") == 0);
  EXPECT_EQ(drained.back(), false);
}
