#include "app/service/Offloaded.hpp"

#include <asio/async_result.hpp>
#include <asio/use_awaitable.hpp>
#include <exception>
#include <memory>

#include "app/model/Offloader.hpp"

namespace tavorin {

namespace {

// Hands the work to the offloader; its completion resumes the verb, and a failure
// is thrown there by the awaitable.
struct Initiation {
  Offloader* offloader;
  std::function<void()> work;

  template <class Handler>
  void operator()(Handler handler) {
    // The offloader keeps its completion in a std::function, which must be copyable.
    auto resume = std::make_shared<Handler>(std::move(handler));
    offloader->offload(std::move(work), [resume](std::exception_ptr failure) { std::move(*resume)(failure); });
  }
};

}  // namespace

// Not a coroutine itself: GCC 12 mishandles objects moved out of a coroutine's
// parameters into an initiation.
asio::awaitable<void> offloaded(Offloader& offloader, std::function<void()> work) {
  return asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr)>(
      Initiation{&offloader, std::move(work)}, asio::use_awaitable);
}

}  // namespace tavorin
