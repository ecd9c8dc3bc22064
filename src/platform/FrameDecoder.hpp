#pragma once
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tavorin {

// Pictures of one film, decoded on a thread of the decoder's own so that the window
// never waits for a file. A request names a time of the file and a size; only the
// newest request matters, so a scrub or a play that asks faster than frames decode
// skips the ones it has already passed. The newest finished frame waits to be taken.
class FrameDecoder {
 public:
  struct Frame {
    double seconds = 0;  // the time that was asked for
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;  // width * height * 4, rows top to bottom
    int filmWidth = 0;               // the picture's own size in the file
    int filmHeight = 0;
  };

  // `arrived` runs on the decoding thread whenever a frame, or the failure, is ready
  // to take; it should only pass the news on. The film is opened on that thread.
  FrameDecoder(std::filesystem::path film, std::function<void()> arrived);
  ~FrameDecoder();
  FrameDecoder(const FrameDecoder&) = delete;
  FrameDecoder& operator=(const FrameDecoder&) = delete;

  // The picture showing at `seconds` into the file, scaled to `width` by `height`.
  // A time past the end gives the film's last picture.
  void request(double seconds, int width, int height);
  // The newest frame finished since the last take, if any.
  std::optional<Frame> take();
  // The sentence saying why this film shows nothing, once that is known.
  std::optional<std::string> failure() const;
  const std::filesystem::path& film() const { return film_; }

 private:
  struct Request {
    double seconds = 0;
    int width = 0;
    int height = 0;
  };
  struct Media;
  void run();
  // True while the request in hand is still the newest one.
  bool current(std::uint64_t serial) const;

  std::filesystem::path film_;
  std::function<void()> arrived_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::optional<Request> pending_;
  std::uint64_t serial_ = 0;
  std::optional<Frame> ready_;
  std::optional<std::string> failure_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace tavorin
