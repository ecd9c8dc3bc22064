#include "voice/AudioFile.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

namespace tavorin {

namespace {

struct InputDeleter {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecDeleter {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct ResamplerDeleter {
  void operator()(SwrContext* s) const { swr_free(&s); }
};

// An opened audio stream with its decoder.
struct Decoder {
  std::unique_ptr<AVFormatContext, InputDeleter> input;
  std::unique_ptr<AVCodecContext, CodecDeleter> codec;
  int stream = -1;
};

std::optional<Decoder> open(const std::filesystem::path& file) {
  AVFormatContext* raw = nullptr;
  if (avformat_open_input(&raw, file.c_str(), nullptr, nullptr) < 0) return std::nullopt;
  Decoder decoder;
  decoder.input.reset(raw);
  if (avformat_find_stream_info(raw, nullptr) < 0) return std::nullopt;
  const AVCodec* codec = nullptr;
  decoder.stream = av_find_best_stream(raw, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
  if (decoder.stream < 0 || !codec) return std::nullopt;
  decoder.codec.reset(avcodec_alloc_context3(codec));
  if (!decoder.codec) return std::nullopt;
  if (avcodec_parameters_to_context(decoder.codec.get(), raw->streams[decoder.stream]->codecpar) < 0) return std::nullopt;
  if (avcodec_open2(decoder.codec.get(), codec, nullptr) < 0) return std::nullopt;
  if (decoder.codec->sample_rate <= 0 || decoder.codec->ch_layout.nb_channels <= 0) return std::nullopt;
  return decoder;
}

// Feeds every decoded frame to `each`; false when decoding broke down before the end.
bool decodeAll(Decoder& decoder, const std::function<void(const AVFrame&)>& each) {
  std::unique_ptr<AVPacket, PacketDeleter> packet(av_packet_alloc());
  std::unique_ptr<AVFrame, FrameDeleter> frame(av_frame_alloc());
  auto drain = [&]() {
    while (true) {
      int got = avcodec_receive_frame(decoder.codec.get(), frame.get());
      if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) return true;
      if (got < 0) return false;
      each(*frame);
      av_frame_unref(frame.get());
    }
  };
  while (av_read_frame(decoder.input.get(), packet.get()) >= 0) {
    if (packet->stream_index == decoder.stream) {
      int sent = avcodec_send_packet(decoder.codec.get(), packet.get());
      av_packet_unref(packet.get());
      // A damaged packet is skipped, as a player would; the rest still counts.
      if (sent < 0 && sent != AVERROR(EAGAIN) && sent != AVERROR_INVALIDDATA) return false;
      if (!drain()) return false;
    } else {
      av_packet_unref(packet.get());
    }
  }
  avcodec_send_packet(decoder.codec.get(), nullptr);
  return drain();
}

void put16(std::string& out, uint16_t v) {
  out += static_cast<char>(v & 0xff);
  out += static_cast<char>(v >> 8);
}
void put32(std::string& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xff);
}

std::string wavHeader(int rate, int channels, uint32_t dataBytes) {
  std::string out = "RIFF";
  put32(out, 36 + dataBytes);
  out += "WAVEfmt ";
  put32(out, 16);
  put16(out, 1);
  put16(out, static_cast<uint16_t>(channels));
  put32(out, static_cast<uint32_t>(rate));
  put32(out, static_cast<uint32_t>(rate * channels * 2));
  put16(out, static_cast<uint16_t>(channels * 2));
  put16(out, 16);
  out += "data";
  put32(out, dataBytes);
  return out;
}

}  // namespace

std::optional<double> AudioFile::seconds(const std::filesystem::path& file) {
  av_log_set_level(AV_LOG_QUIET);
  auto decoder = open(file);
  if (!decoder) return std::nullopt;
  int64_t samples = 0;
  int rate = decoder->codec->sample_rate;
  if (!decodeAll(*decoder, [&](const AVFrame& frame) { samples += frame.nb_samples; }) && samples == 0)
    return std::nullopt;
  return static_cast<double>(samples) / rate;
}

bool AudioFile::transcodeToWav(const std::filesystem::path& from, const std::filesystem::path& to) {
  av_log_set_level(AV_LOG_QUIET);
  auto decoder = open(from);
  if (!decoder) return false;
  AVCodecContext& codec = *decoder->codec;
  const int rate = codec.sample_rate, channels = codec.ch_layout.nb_channels;
  SwrContext* raw = nullptr;
  AVChannelLayout layout;
  av_channel_layout_default(&layout, channels);
  if (swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_S16, rate, &codec.ch_layout, codec.sample_fmt, rate, 0,
                          nullptr) < 0 ||
      swr_init(raw) < 0) {
    swr_free(&raw);
    return false;
  }
  std::unique_ptr<SwrContext, ResamplerDeleter> resampler(raw);
  std::string pcm;
  std::vector<uint8_t> buffer;
  bool whole = decodeAll(*decoder, [&](const AVFrame& frame) {
    int room = swr_get_out_samples(resampler.get(), frame.nb_samples);
    buffer.resize(static_cast<size_t>(std::max(room, 0)) * channels * 2);
    uint8_t* out = buffer.data();
    int made = swr_convert(resampler.get(), &out, room, const_cast<const uint8_t**>(frame.extended_data), frame.nb_samples);
    if (made > 0) pcm.append(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(made) * channels * 2);
  });
  if (!whole && pcm.empty()) return false;
  if (pcm.size() > 0xFFFFFFFFull - 36) throw std::runtime_error("The audio at " + from.string() + " is too long for a WAV file.");
  std::ofstream out(to, std::ios::binary | std::ios::trunc);
  out << wavHeader(rate, channels, static_cast<uint32_t>(pcm.size())) << pcm;
  out.close();
  if (!out) throw std::runtime_error("The audio could not be written to " + to.string() + ".");
  return true;
}

}  // namespace tavorin
