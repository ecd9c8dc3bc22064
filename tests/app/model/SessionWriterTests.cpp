#include <gtest/gtest.h>

#include <thread>

#include "TestSupport.hpp"
#include "app/model/SessionWriter.hpp"

using namespace tavorin;

namespace {

// Holds offloaded work so a test decides which worker runs first.
class HeldOffloader final : public Offloader {
 public:
  struct Job {
    std::function<void()> work;
    std::function<void(std::exception_ptr)> then;
  };
  void offload(std::function<void()> work, std::function<void(std::exception_ptr)> then) override {
    jobs.push_back({std::move(work), std::move(then)});
  }
  void run(Job& job) {
    std::exception_ptr failure;
    try {
      job.work();
    } catch (...) {
      failure = std::current_exception();
    }
    job.then(failure);
  }
  std::vector<Job> jobs;
};

struct SessionWriterTest : ::testing::Test {
  test::TempDir tmp;
  SessionStore store{tmp / "support/session.json"};
  HeldOffloader workers;
  std::vector<std::string> failures;
  SessionWriter writer{workers, [this](const std::string& why) { failures.push_back(why); }};

  void page(const std::string& p) {
    writer.write(store, [p](const SessionStore& s) { s.rememberPage(p); });
  }
};

}  // namespace

TEST_F(SessionWriterTest, NothingTouchesTheDiskUntilAWorkerRuns) {
  page("edit");
  EXPECT_FALSE(std::filesystem::exists(store.file));
  ASSERT_EQ(workers.jobs.size(), 1u);
  workers.run(workers.jobs[0]);
  EXPECT_EQ(store.read().page, "edit");
}

TEST_F(SessionWriterTest, ALaterChangeNeverLandsBeforeAnEarlierOne) {
  page("edit");
  page("library");
  page("script");
  // The workers pick the jobs up back to front; the changes still land in order.
  workers.run(workers.jobs[2]);
  EXPECT_EQ(store.read().page, "edit");
  workers.run(workers.jobs[1]);
  EXPECT_EQ(store.read().page, "library");
  workers.run(workers.jobs[0]);
  EXPECT_EQ(store.read().page, "script");
  EXPECT_TRUE(failures.empty());
}

TEST_F(SessionWriterTest, TwoWorkersAtOnceKeepTheOrder) {
  for (int i = 0; i < 200; ++i) writer.write(store, [i](const SessionStore& s) { s.rememberExportSpeed("k", i); });
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t)
    threads.emplace_back([this, t] {
      for (std::size_t j = t; j < workers.jobs.size(); j += 2) workers.jobs[j].work();
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(store.read().exportSpeeds->at("k"), 199);
}

TEST_F(SessionWriterTest, AFlushMakesWhatIsQueuedAndTheWorkersFindNothingLeft) {
  page("edit");
  writer.write(store, [](const SessionStore& s) { s.rememberProject("Films"); });
  writer.flush();
  EXPECT_EQ(store.read().page, "edit");
  EXPECT_EQ(store.read().project, "Films");
  // A worker arriving after the flush must not write an older state over it.
  page("library");
  writer.flush();
  for (auto& job : workers.jobs) workers.run(job);
  EXPECT_EQ(store.read().page, "library");
}

TEST_F(SessionWriterTest, AFailedWriteIsReportedAndTheNextOneStillLands) {
  // A file where the folder should be: the session cannot be written.
  std::filesystem::create_directories(tmp.path());
  test::writeFile(tmp / "support", "not a folder");
  page("edit");
  workers.run(workers.jobs[0]);
  ASSERT_EQ(failures.size(), 1u);
  std::filesystem::remove(tmp / "support");
  page("library");
  writer.flush();
  EXPECT_EQ(store.read().page, "library");
  EXPECT_EQ(failures.size(), 1u);
}
