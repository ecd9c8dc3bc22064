#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <string>
#include <vector>

#include "app/process/AppDelegate.hpp"

// The application loop is the process's one io_context, run on the main thread:
// it is the main actor, and everything that touches the model runs on it.
int main(int argc, char** argv) {
  asio::io_context context(1);
  tavorin::AppDelegate delegate(context);
  std::vector<std::string> arguments(argv + 1, argv + argc);
  asio::post(context, [&] { delegate.applicationDidFinishLaunching(arguments); });
  context.run();
  return delegate.exitCode();
}
