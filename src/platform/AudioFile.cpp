#include "platform/AudioFile.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace tavorin {

UnreadableAudio::UnreadableAudio(const std::string& name)
    : std::runtime_error("Can't read " + name + ": unsupported audio format."), name(name) {}

namespace {

struct FormatCloser {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFreer {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFreer {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwrFreer {
  void operator()(SwrContext* s) const { swr_free(&s); }
};

// One opened audio stream with its decoder.
struct Source {
  std::unique_ptr<AVFormatContext, FormatCloser> format;
  std::unique_ptr<AVCodecContext, CodecFreer> codec;
  int stream = -1;

  double seconds() const {
    const AVStream* s = format->streams[stream];
    if (s->duration != AV_NOPTS_VALUE && s->duration > 0) return s->duration * av_q2d(s->time_base);
    if (format->duration != AV_NOPTS_VALUE && format->duration > 0) return format->duration / double(AV_TIME_BASE);
    return 0;
  }
};

Source open(const std::filesystem::path& path) {
  // A damaged file is answered with a sentence; the library's own chatter on the
  // terminal says nothing more to a user.
  static std::once_flag quiet;
  std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });
  const std::string name = path.filename().string();
  Source source;
  AVFormatContext* raw = nullptr;
  if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) throw UnreadableAudio(name);
  source.format.reset(raw);
  if (avformat_find_stream_info(raw, nullptr) < 0) throw UnreadableAudio(name);
  const AVCodec* decoder = nullptr;
  source.stream = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
  if (source.stream < 0 || !decoder) throw UnreadableAudio(name);
  source.codec.reset(avcodec_alloc_context3(decoder));
  if (!source.codec ||
      avcodec_parameters_to_context(source.codec.get(), raw->streams[source.stream]->codecpar) < 0 ||
      avcodec_open2(source.codec.get(), decoder, nullptr) < 0 || source.codec->sample_rate <= 0 ||
      source.codec->ch_layout.nb_channels <= 0)
    throw UnreadableAudio(name);
  return source;
}

// Feeds every decoded frame of the stream to `take`; stops early when it returns false.
template <typename Take>
void decodeFrames(Source& source, const std::string& name, Take&& take) {
  std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
  std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
  bool more = true;
  bool draining = false;
  while (more) {
    if (!draining) {
      const int read = av_read_frame(source.format.get(), packet.get());
      if (read < 0) {
        draining = true;
        avcodec_send_packet(source.codec.get(), nullptr);
      } else {
        if (packet->stream_index == source.stream) {
          // A damaged packet is skipped, as a player would; the rest still plays.
          avcodec_send_packet(source.codec.get(), packet.get());
        }
        av_packet_unref(packet.get());
      }
    }
    while (true) {
      const int got = avcodec_receive_frame(source.codec.get(), frame.get());
      if (got == AVERROR(EAGAIN)) break;
      if (got == AVERROR_EOF) return;
      if (got < 0) throw UnreadableAudio(name);
      more = take(frame.get());
      av_frame_unref(frame.get());
      if (!more) return;
    }
  }
}

}  // namespace

AudioFile::Decoded AudioFile::decode(const std::filesystem::path& path, double from, std::optional<double> seconds,
                                     int channels) {
  const std::string name = path.filename().string();
  Source source = open(path);
  AVCodecContext* codec = source.codec.get();
  Decoded out;
  out.sampleRate = codec->sample_rate;
  out.channels = channels;

  // A mono file sounds the same on every side: copied out, not spread at -3 dB as a
  // downmix matrix would.
  const bool spread = codec->ch_layout.nb_channels == 1 && channels > 1;
  const int converting = spread ? 1 : channels;
  AVChannelLayout layout;
  av_channel_layout_default(&layout, converting);
  SwrContext* rawSwr = nullptr;
  if (swr_alloc_set_opts2(&rawSwr, &layout, AV_SAMPLE_FMT_FLT, codec->sample_rate, &codec->ch_layout,
                          codec->sample_fmt, codec->sample_rate, 0, nullptr) < 0)
    throw UnreadableAudio(name);
  std::unique_ptr<SwrContext, SwrFreer> swr(rawSwr);
  if (swr_init(swr.get()) < 0) throw UnreadableAudio(name);

  const auto skip = static_cast<std::uint64_t>(std::llround(std::max(from, 0.0) * out.sampleRate));
  // The frame after the last one wanted; with no length, past any file.
  const std::uint64_t limit =
      seconds ? skip + static_cast<std::uint64_t>(std::llround(std::max(*seconds, 0.0) * out.sampleRate)) : UINT64_MAX;
  std::uint64_t seen = 0;  // frames of the file passed so far
  std::vector<float> chunk;
  std::vector<float> mono;

  decodeFrames(source, name, [&](AVFrame* frame) {
    // Format conversion only, so the output has exactly the frame's count.
    chunk.resize(std::size_t(frame->nb_samples) * channels);
    if (spread) mono.resize(frame->nb_samples);
    auto* target = reinterpret_cast<uint8_t*>(spread ? mono.data() : chunk.data());
    const int converted =
        swr_convert(swr.get(), &target, frame->nb_samples, const_cast<const uint8_t**>(frame->extended_data),
                    frame->nb_samples);
    if (converted < 0) throw UnreadableAudio(name);
    if (spread)
      for (int i = 0; i < converted; ++i) std::fill_n(chunk.begin() + std::size_t(i) * channels, channels, mono[i]);
    const std::uint64_t begin = seen;
    const std::uint64_t end = seen + converted;
    seen = end;
    const std::uint64_t keepFrom = std::max(begin, skip);
    const std::uint64_t keepTo = std::min(end, limit);
    if (keepTo > keepFrom)
      out.samples.insert(out.samples.end(), chunk.begin() + (keepFrom - begin) * channels,
                         chunk.begin() + (keepTo - begin) * channels);
    return seen < limit;
  });
  return out;
}

double AudioFile::duration(const std::filesystem::path& path) {
  Source source = open(path);
  return source.seconds();
}

namespace {

template <typename T>
float magnitude(T v) {
  if constexpr (std::is_same_v<T, uint8_t>) return std::abs((int(v) - 128) / 128.0f);
  else if constexpr (std::is_same_v<T, int16_t>) return std::abs(v / 32768.0f);
  else if constexpr (std::is_same_v<T, int32_t>) return std::abs(v / 2147483648.0f);
  else if constexpr (std::is_same_v<T, int64_t>) return std::abs(float(v / 9223372036854775808.0));
  else return std::abs(float(v));
}

// Per-frame peaks over the channels of one frame in its own sample layout.
template <typename T>
void framePeaks(const AVFrame* frame, int channels, bool planar, float* peaks) {
  const int n = frame->nb_samples;
  if (planar) {
    std::fill(peaks, peaks + n, 0.0f);
    for (int c = 0; c < channels; ++c) {
      const T* data = reinterpret_cast<const T*>(frame->extended_data[c]);
      for (int i = 0; i < n; ++i) peaks[i] = std::max(peaks[i], magnitude(data[i]));
    }
  } else {
    const T* data = reinterpret_cast<const T*>(frame->extended_data[0]);
    for (int i = 0; i < n; ++i) {
      float peak = 0;
      for (int c = 0; c < channels; ++c) peak = std::max(peak, magnitude(data[std::size_t(i) * channels + c]));
      peaks[i] = peak;
    }
  }
}

}  // namespace

int AudioFile::scan(const std::filesystem::path& path, double from, std::optional<double> seconds,
                    const std::function<void(const float*, std::size_t, std::uint64_t, int)>& visit) {
  const std::string name = path.filename().string();
  Source source = open(path);
  AVCodecContext* codec = source.codec.get();
  const int rate = codec->sample_rate;
  const auto skip = static_cast<std::uint64_t>(std::llround(std::max(from, 0.0) * rate));
  // The frame after the last one wanted; with no length, past any file.
  const std::uint64_t limit =
      seconds ? skip + static_cast<std::uint64_t>(std::llround(std::max(*seconds, 0.0) * rate)) : UINT64_MAX;
  std::uint64_t seen = 0;
  std::vector<float> peaks;

  decodeFrames(source, name, [&](AVFrame* frame) {
    const int channels = frame->ch_layout.nb_channels;
    const auto format = static_cast<AVSampleFormat>(frame->format);
    const bool planar = av_sample_fmt_is_planar(format);
    peaks.resize(frame->nb_samples);
    switch (av_get_packed_sample_fmt(format)) {
      case AV_SAMPLE_FMT_U8: framePeaks<uint8_t>(frame, channels, planar, peaks.data()); break;
      case AV_SAMPLE_FMT_S16: framePeaks<int16_t>(frame, channels, planar, peaks.data()); break;
      case AV_SAMPLE_FMT_S32: framePeaks<int32_t>(frame, channels, planar, peaks.data()); break;
      case AV_SAMPLE_FMT_S64: framePeaks<int64_t>(frame, channels, planar, peaks.data()); break;
      case AV_SAMPLE_FMT_FLT: framePeaks<float>(frame, channels, planar, peaks.data()); break;
      case AV_SAMPLE_FMT_DBL: framePeaks<double>(frame, channels, planar, peaks.data()); break;
      default: throw UnreadableAudio(name);
    }
    const std::uint64_t begin = seen;
    const std::uint64_t end = seen + frame->nb_samples;
    seen = end;
    const std::uint64_t keepFrom = std::max(begin, skip);
    const std::uint64_t keepTo = std::min(end, limit);
    if (keepTo > keepFrom) visit(peaks.data() + (keepFrom - begin), keepTo - keepFrom, keepFrom - skip, rate);
    return seen < limit;
  });
  return rate;
}

}  // namespace tavorin
