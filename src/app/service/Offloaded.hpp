#pragma once
#include <asio/awaitable.hpp>
#include <functional>

namespace tavorin {

class Offloader;

// Runs `work` off the main actor and resumes the waiting verb on the main actor
// when it is done; what `work` threw is thrown here. Meanwhile the actor serves
// every other verb.
asio::awaitable<void> offloaded(Offloader& offloader, std::function<void()> work);

}  // namespace tavorin
