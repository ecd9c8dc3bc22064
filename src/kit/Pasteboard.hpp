#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tavorin {

// Text under a type on the shared pasteboard. Copying replaces everything that was
// there, as it does on every desktop.
class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  virtual std::optional<std::string> read(std::string_view type) const = 0;
  virtual void write(std::string_view type, std::string text) = 0;
};

// A pasteboard that lives in this process: the application's until a window owns a
// real one, and the tests'.
class MemoryPasteboard final : public Pasteboard {
 public:
  std::optional<std::string> read(std::string_view type) const override;
  void write(std::string_view type, std::string text) override;

 private:
  std::map<std::string, std::string, std::less<>> held_;
};

}  // namespace tavorin
