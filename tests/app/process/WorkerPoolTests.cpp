#include <gtest/gtest.h>

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <stdexcept>
#include <thread>

#include "app/process/AsioMainActor.hpp"
#include "app/process/WorkerPool.hpp"

using namespace tavorin;

TEST(WorkerPool, RunsWorkOffTheMainThreadAndTheCompletionOnIt) {
  asio::io_context context;
  AsioMainActor actor(context);
  WorkerPool pool(context, 2);
  std::thread::id workedOn, finishedOn;
  bool finished = false;
  pool.offload([&] { workedOn = std::this_thread::get_id(); },
               [&](std::exception_ptr failure) {
                 EXPECT_FALSE(failure);
                 finishedOn = std::this_thread::get_id();
                 finished = actor.onActor();
               });
  // The pool's work guard keeps run() going until the completion is back.
  context.run();
  EXPECT_TRUE(finished);
  EXPECT_NE(workedOn, std::this_thread::get_id());
  EXPECT_EQ(finishedOn, std::this_thread::get_id());
}

TEST(WorkerPool, HandsAFailureBackAsTheExceptionItWas) {
  asio::io_context context;
  WorkerPool pool(context, 1);
  std::string said;
  pool.offload([] { throw std::runtime_error("could not write x: disk full"); },
               [&](std::exception_ptr failure) {
                 try {
                   if (failure) std::rethrow_exception(failure);
                 } catch (const std::exception& e) {
                   said = e.what();
                 }
               });
  context.run();
  EXPECT_EQ(said, "could not write x: disk full");
}

TEST(AsioMainActor, IsTheThreadThatRunsItsContext) {
  asio::io_context context;
  AsioMainActor actor(context);
  EXPECT_FALSE(actor.onActor()) << "nothing runs the context yet";
  bool inside = false, elsewhere = true;
  std::thread runner([&] {
    asio::post(context, [&] {
      inside = actor.onActor();
      std::thread([&] { elsewhere = actor.onActor(); }).join();
    });
    context.run();
  });
  runner.join();
  EXPECT_TRUE(inside);
  EXPECT_FALSE(elsewhere);
}
