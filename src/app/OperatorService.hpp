#pragma once
#include <asio/awaitable.hpp>
#include <functional>
#include <string>

#include "operator/OperatorCommand.hpp"

namespace tavorin {

class AppStore;

// Turns a verb into an act of the running studio. Each verb calls the same
// operation on the store or the model that a control in the window calls.
class OperatorService {
 public:
  // `quit` asks the application to terminate through this hook.
  OperatorService(AppStore& store, std::function<void()> terminate);

  // Never throws: every refusal is an answer with `ok` false.
  asio::awaitable<OperatorResult> handle(OperatorCommand command);

  // Reports, shaped for the wire.
  JSONValue status() const;
  JSONValue buildReport() const;

 private:
  AppStore& store_;
  std::function<void()> terminate_;
};

}  // namespace tavorin
