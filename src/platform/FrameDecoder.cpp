#include "platform/FrameDecoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

#include <cmath>
#include <limits>

namespace tavorin {

namespace {

// Forward of the picture in hand by more than this, a seek to the keyframe before the
// target is cheaper than decoding everything between.
constexpr double seekAheadSeconds = 2;

std::string averror(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

}  // namespace

// What one opening of the film holds; lives on the decoding thread only.
struct FrameDecoder::Media {
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  SwsContext* scaler = nullptr;
  AVPacket* packet = nullptr;
  AVFrame* decoded = nullptr;
  AVFrame* held = nullptr;  // the last picture decoded, which is what the film shows now
  int stream = -1;
  AVRational base{1, 1};
  std::int64_t start = 0;
  std::int64_t step = 1;  // one frame's length in stream ticks, for frames that don't say
  bool holding = false;
  std::int64_t heldPts = 0, heldLength = 1;
  // Whether decoding on from `held` continues the film; false before the first seek
  // and after the end drained the codec.
  bool inStep = false;
  bool atEnd = false;
  // The last picture handed out, so asking again for it costs nothing.
  std::optional<std::int64_t> givenPts;
  int givenWidth = 0, givenHeight = 0;

  ~Media() {
    sws_freeContext(scaler);
    av_frame_free(&held);
    av_frame_free(&decoded);
    av_packet_free(&packet);
    avcodec_free_context(&codec);
    if (format) avformat_close_input(&format);
  }

  // The sentence of why not, or nothing when the film is ready.
  std::optional<std::string> open(const std::filesystem::path& film) {
    const std::string name = film.filename().string();
    const std::string url = "file:" + film.string();
    if (int e = avformat_open_input(&format, url.c_str(), nullptr, nullptr); e < 0) {
      format = nullptr;
      return "the film " + name + " can't be shown: " + averror(e);
    }
    if (avformat_find_stream_info(format, nullptr) < 0 ||
        (stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0)) < 0)
      return "the film " + name + " can't be shown: it holds no pictures";
    const AVStream* s = format->streams[stream];
    const AVCodec* decoder = avcodec_find_decoder(s->codecpar->codec_id);
    if (!decoder) return "the film " + name + " can't be shown: its pictures are in a format this studio can't decode";
    codec = avcodec_alloc_context3(decoder);
    if (!codec || avcodec_parameters_to_context(codec, s->codecpar) < 0)
      return "the film " + name + " can't be shown: its decoder would not start";
    // Slices, not frames, in parallel: frame threads hold pictures back and make a
    // seek answer late.
    codec->thread_count = 0;
    codec->thread_type = FF_THREAD_SLICE;
    if (int e = avcodec_open2(codec, decoder, nullptr); e < 0)
      return "the film " + name + " can't be shown: " + averror(e);
    packet = av_packet_alloc();
    decoded = av_frame_alloc();
    held = av_frame_alloc();
    if (!packet || !decoded || !held) return "the film " + name + " can't be shown: out of memory";
    base = s->time_base;
    start = s->start_time != AV_NOPTS_VALUE ? s->start_time : 0;
    AVRational rate = s->avg_frame_rate.num > 0 ? s->avg_frame_rate : s->r_frame_rate;
    if (rate.num > 0 && rate.den > 0) step = std::max<std::int64_t>(1, av_rescale_q(1, av_inv_q(rate), base));
    return std::nullopt;
  }

  std::int64_t ticks(double seconds) const {
    const double t = std::max(seconds, 0.0) / av_q2d(base);
    return start + static_cast<std::int64_t>(std::llround(std::min(t, 1e15)));
  }

  // Takes the codec's next picture into `held`; true when it gave one.
  bool receive() {
    if (avcodec_receive_frame(codec, decoded) < 0) return false;
    std::int64_t pts = decoded->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) pts = holding ? heldPts + heldLength : start;
    av_frame_unref(held);
    av_frame_move_ref(held, decoded);
    holding = true;
    heldPts = pts;
    heldLength = held->pkt_duration > 0 ? held->pkt_duration : step;
    return true;
  }

  // Decodes up to the picture showing at `target`; false when a newer request came
  // first. On true, `held` is the picture (the last one, past the end).
  template <class Current>
  bool reach(std::int64_t target, Current current) {
    if (holding && (atEnd || inStep) && target >= heldPts && (atEnd || target < heldPts + heldLength)) return true;
    if (!inStep || !holding || target < heldPts || target - heldPts > std::int64_t(seekAheadSeconds / av_q2d(base))) {
      // The keyframe at or before the target, then forward from there.
      if (av_seek_frame(format, stream, target, AVSEEK_FLAG_BACKWARD) < 0 &&
          av_seek_frame(format, stream, start, AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_ANY) < 0)
        return holding;
      avcodec_flush_buffers(codec);
      inStep = true;
      atEnd = false;
    }
    while (current()) {
      const int read = av_read_frame(format, packet);
      if (read < 0) {
        // The end: what the codec still holds is the film's last pictures.
        avcodec_send_packet(codec, nullptr);
        while (receive())
          if (heldPts + heldLength > target) break;
        avcodec_flush_buffers(codec);
        inStep = false;
        atEnd = !(holding && heldPts + heldLength > target);
        return holding;
      }
      if (packet->stream_index != stream) {
        av_packet_unref(packet);
        continue;
      }
      const int sent = avcodec_send_packet(codec, packet);
      av_packet_unref(packet);
      if (sent < 0 && sent != AVERROR(EAGAIN)) continue;  // a damaged packet: the next keyframe mends it
      while (receive())
        // The first picture still showing at the target; one that starts after it
        // answers a target before the film's first picture.
        if (heldPts + heldLength > target) return true;
    }
    return false;
  }

  // `held` scaled to RGBA of the given size.
  std::optional<Frame> convert(int width, int height) {
    if (held->width <= 0 || held->height <= 0) return std::nullopt;
    scaler = sws_getCachedContext(scaler, held->width, held->height, AVPixelFormat(held->format), width, height,
                                  AV_PIX_FMT_RGBA, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!scaler) return std::nullopt;
    Frame out;
    out.width = width;
    out.height = height;
    out.filmWidth = held->width;
    out.filmHeight = held->height;
    out.rgba.resize(std::size_t(width) * std::size_t(height) * 4);
    std::uint8_t* planes[4] = {out.rgba.data(), nullptr, nullptr, nullptr};
    int strides[4] = {width * 4, 0, 0, 0};
    if (sws_scale(scaler, held->data, held->linesize, 0, held->height, planes, strides) <= 0) return std::nullopt;
    return out;
  }
};

FrameDecoder::FrameDecoder(std::filesystem::path film, std::function<void()> arrived)
    : film_(std::move(film)), arrived_(std::move(arrived)) {
  thread_ = std::thread([this] { run(); });
}

FrameDecoder::~FrameDecoder() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void FrameDecoder::request(double seconds, int width, int height) {
  {
    std::lock_guard lock(mutex_);
    pending_ = Request{seconds, std::max(width, 1), std::max(height, 1)};
    ++serial_;
  }
  wake_.notify_all();
}

std::optional<FrameDecoder::Frame> FrameDecoder::take() {
  std::lock_guard lock(mutex_);
  auto out = std::move(ready_);
  ready_.reset();
  return out;
}

std::optional<std::string> FrameDecoder::failure() const {
  std::lock_guard lock(mutex_);
  return failure_;
}

bool FrameDecoder::current(std::uint64_t serial) const {
  std::lock_guard lock(mutex_);
  return !stopping_ && serial == serial_;
}

void FrameDecoder::run() {
  // The demuxers' and codecs' own complaints would go to the studio's stderr, frame by frame.
  av_log_set_level(AV_LOG_QUIET);
  Media media;
  if (auto why = media.open(film_)) {
    {
      std::lock_guard lock(mutex_);
      failure_ = *why;
    }
    if (arrived_) arrived_();
    return;
  }
  for (;;) {
    Request asked;
    std::uint64_t serial = 0;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || pending_.has_value(); });
      if (stopping_) return;
      asked = *pending_;
      pending_.reset();
      serial = serial_;
    }
    const std::int64_t target = media.ticks(asked.seconds);
    if (!media.reach(target, [&] { return current(serial); })) continue;
    if (!media.holding) continue;
    // The picture already handed out at this size: nothing new to show.
    if (media.givenPts == media.heldPts && media.givenWidth == asked.width && media.givenHeight == asked.height)
      continue;
    auto frame = media.convert(asked.width, asked.height);
    if (!frame) continue;
    frame->seconds = asked.seconds;
    media.givenPts = media.heldPts;
    media.givenWidth = asked.width;
    media.givenHeight = asked.height;
    {
      std::lock_guard lock(mutex_);
      ready_ = std::move(*frame);
    }
    if (arrived_) arrived_();
  }
}

}  // namespace tavorin
