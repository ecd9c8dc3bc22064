#include "app/process/AsioMainActor.hpp"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

namespace tavorin {

namespace {
class AsioTimer final : public MainActor::Timer {
 public:
  explicit AsioTimer(asio::io_context& context) : timer(context) {}
  void cancel() override { timer.cancel(); }
  asio::steady_timer timer;
};
}  // namespace

bool AsioMainActor::onActor() const { return context_.get_executor().running_in_this_thread(); }

void AsioMainActor::post(std::function<void()> work) { asio::post(context_, std::move(work)); }

std::shared_ptr<MainActor::Timer> AsioMainActor::after(Clock::duration delay, std::function<void()> work) {
  auto t = std::make_shared<AsioTimer>(context_);
  t->timer.expires_after(delay);
  // The handler holds the timer so it lives until it fires or is cancelled.
  t->timer.async_wait([t, work = std::move(work)](std::error_code ec) {
    if (!ec) work();
  });
  return t;
}

}  // namespace tavorin
