#include "platform/Footage.hpp"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

#include <sys/stat.h>

#include <cmath>
#include <mutex>

namespace tavorin {

namespace {

using Steady = std::chrono::steady_clock;

// Asked by FFmpeg during every blocking read; a nonzero answer ends the open or the probe.
int pastDeadline(void* opaque) { return Steady::now() > *static_cast<Steady::time_point*>(opaque) ? 1 : 0; }

struct Input {
  AVFormatContext* context = nullptr;
  ~Input() {
    if (context) avformat_close_input(&context);
  }
};

bool positive(double v) { return std::isfinite(v) && v > 0; }

}  // namespace

Footage::Answer Footage::probe(const std::filesystem::path& file, std::chrono::milliseconds within) {
  static std::once_flag quiet;
  // A hostile file makes the demuxers talk; the answer is what matters, not their complaints.
  std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });

  // Only a plain file: a FIFO would block the open and a folder is no film.
  struct stat info {};
  if (::stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size == 0) return {};

  Steady::time_point until = Steady::now() + within;
  Input input;
  input.context = avformat_alloc_context();
  if (!input.context) return {};
  input.context->interrupt_callback.callback = pastDeadline;
  input.context->interrupt_callback.opaque = &until;

  AVDictionary* options = nullptr;
  av_dict_set(&options, "probesize", "5000000", 0);
  av_dict_set(&options, "analyzeduration", "5000000", 0);
  // The file's name is taken literally: no protocol prefixes, no image-sequence patterns.
  const std::string url = "file:" + file.string();
  const int opened = avformat_open_input(&input.context, url.c_str(), nullptr, &options);
  av_dict_free(&options);
  if (opened < 0) {
    input.context = nullptr;  // freed by the failed open
    return {};
  }
  if (avformat_find_stream_info(input.context, nullptr) < 0) return {};

  Answer answer;
  const AVFormatContext* c = input.context;
  const int video = av_find_best_stream(input.context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  bool audio = false;
  for (unsigned i = 0; i < c->nb_streams; ++i)
    if (c->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) audio = true;
  if (video < 0 && !audio) return {};
  answer.hasAudio = audio;

  if (c->duration != AV_NOPTS_VALUE && c->duration > 0) {
    answer.seconds = static_cast<double>(c->duration) / AV_TIME_BASE;
  } else if (video >= 0) {
    const AVStream* s = c->streams[video];
    if (s->duration != AV_NOPTS_VALUE && s->duration > 0) answer.seconds = s->duration * av_q2d(s->time_base);
  }
  if (answer.seconds && !positive(*answer.seconds)) answer.seconds.reset();

  if (video >= 0) {
    const AVStream* s = c->streams[video];
    if (s->codecpar->width > 0 && s->codecpar->height > 0) answer.size = Size{s->codecpar->width, s->codecpar->height};
    AVRational r = s->avg_frame_rate.num > 0 ? s->avg_frame_rate : s->r_frame_rate;
    if (r.num > 0 && r.den > 0 && positive(av_q2d(r))) answer.rate = av_q2d(r);
  }
  return answer;
}

std::optional<double> Footage::seconds(const std::filesystem::path& file) { return probe(file).seconds; }
std::optional<Footage::Size> Footage::size(const std::filesystem::path& file) { return probe(file).size; }
std::optional<double> Footage::rate(const std::filesystem::path& file) { return probe(file).rate; }
std::optional<bool> Footage::hasAudio(const std::filesystem::path& file) { return probe(file).hasAudio; }

}  // namespace tavorin
