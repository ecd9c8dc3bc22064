#include "platform/camera/X11Recorder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/time.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}
#include <xcb/xcb.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

namespace tavorin {

namespace {

std::string averror(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

std::string displayName(std::string display) {
  if (!display.empty()) return display;
  const char* env = std::getenv("DISPLAY");
  return env ? env : "";
}

// Whether the X server lets us in, and whether the window is there to be filmed.
enum class Reach { ok, noAccess, noTarget };

Reach reach(const std::string& display, std::optional<unsigned long> window) {
  if (display.empty()) return Reach::noAccess;
  xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
  if (!c || xcb_connection_has_error(c)) {
    if (c) xcb_disconnect(c);
    return Reach::noAccess;
  }
  Reach answer = Reach::ok;
  if (window) {
    xcb_generic_error_t* error = nullptr;
    auto* attributes = xcb_get_window_attributes_reply(
        c, xcb_get_window_attributes(c, static_cast<xcb_window_t>(*window)), &error);
    if (!attributes || error || attributes->map_state != XCB_MAP_STATE_VIEWABLE) answer = Reach::noTarget;
    std::free(attributes);
    std::free(error);
  } else if (!xcb_setup_roots_iterator(xcb_get_setup(c)).rem) {
    answer = Reach::noTarget;
  }
  xcb_disconnect(c);
  return answer;
}

bool waylandSession() {
  const char* type = std::getenv("XDG_SESSION_TYPE");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (type && std::string(type) == "wayland") || (wayland && *wayland);
}

struct InputCloser {
  void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;

// Opens the grab; x11grab stamps each packet with the wall clock in microseconds.
Input openGrab(const std::string& display, std::optional<unsigned long> window, int fps) {
  static std::once_flag registered;
  std::call_once(registered, [] {
    avdevice_register_all();
    // The encoder's statistics and the grab's notices are not the user's business.
    av_log_set_level(AV_LOG_ERROR);
  });
  const AVInputFormat* format = av_find_input_format("x11grab");
  if (!format) throw RecordError::writerFailed("this ffmpeg has no x11grab input");
  AVDictionary* options = nullptr;
  av_dict_set(&options, "framerate", std::to_string(fps).c_str(), 0);
  av_dict_set(&options, "draw_mouse", "1", 0);
  if (window) av_dict_set(&options, "window_id", std::to_string(*window).c_str(), 0);
  AVFormatContext* context = nullptr;
  const int opened = avformat_open_input(&context, display.c_str(), format, &options);
  av_dict_free(&options);
  if (opened < 0) throw RecordError::writerFailed("the display " + display + " would not be grabbed: " + averror(opened));
  Input input(context);
  if (context->nb_streams < 1 || context->streams[0]->codecpar->codec_type != AVMEDIA_TYPE_VIDEO)
    throw RecordError::writerFailed("the grab has no picture");
  return input;
}

// The desktop's own sound is the monitor of the default sink of PulseAudio (or of
// PipeWire's Pulse server), read as 48 kHz stereo. Throws with why it cannot be had.
Input openSound() {
  const AVInputFormat* pulse = av_find_input_format("pulse");
  if (!pulse) throw std::runtime_error("this ffmpeg has no PulseAudio input");
  AVDictionary* options = nullptr;
  av_dict_set(&options, "sample_rate", "48000", 0);
  av_dict_set(&options, "channels", "2", 0);
  // Small fragments: the sound keeps pace with the picture.
  av_dict_set(&options, "fragment_size", "3840", 0);
  AVFormatContext* context = nullptr;
  const int opened = avformat_open_input(&context, "@DEFAULT_MONITOR@", pulse, &options);
  av_dict_free(&options);
  if (opened < 0)
    throw std::runtime_error("there is no PulseAudio or PipeWire sound server to take the desktop's sound from (" +
                             averror(opened) + ")");
  Input input(context);
  if (context->nb_streams < 1 || context->streams[0]->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
    throw std::runtime_error("the sound server gave no sound");
  return input;
}

constexpr int soundRate = 48000;

}  // namespace

std::string CameraVerdict::name(Kind kind) {
  switch (kind) {
    case Kind::proven: return "proven";
    case Kind::blocked: return "blocked";
    case Kind::noAccess: return "noAccess";
    case Kind::noTarget: return "noTarget";
  }
  return "noTarget";
}

struct X11Recorder::Session {
  Input input;
  AVCodecContext* decoder = nullptr;
  AVCodecContext* encoder = nullptr;
  AVFormatContext* output = nullptr;
  AVStream* stream = nullptr;
  SwsContext* scaler = nullptr;
  AVFrame* picture = nullptr;  // the grab, decoded
  AVFrame* encoded = nullptr;  // converted for the encoder
  int fps = defaultFps;
  int width = 0, height = 0;  // cut down to even numbers

  // The desktop's sound, when the take asked for it and the server gave it.
  Input sound;
  AVCodecContext* soundDecoder = nullptr;
  AVCodecContext* soundEncoder = nullptr;
  AVStream* soundStream = nullptr;
  SwrContext* resampler = nullptr;
  AVAudioFifo* fifo = nullptr;
  std::int64_t soundPts = AV_NOPTS_VALUE;  // in samples from the first frame
  std::thread listen;
  // The muxer takes packets from the picture's and the sound's threads in turn.
  std::mutex writing;

  mutable std::mutex lock;
  std::condition_variable changed;
  std::deque<AVPacket*> queue;
  bool grabbing = true;  // the grab thread has not ended
  bool stop = false;
  bool started = false;
  std::optional<std::string> failure;
  std::int64_t firstFrame = AV_NOPTS_VALUE, lastFrame = AV_NOPTS_VALUE;  // microseconds
  std::int64_t cutAt = AV_NOPTS_VALUE;  // a grab taken after the cut is not the take's
  std::int64_t lastPts = -1;
  long long frames = 0, dropped = 0;
  std::thread grab, encode;

  ~Session() {
    {
      std::lock_guard guard(lock);
      stop = true;
    }
    changed.notify_all();
    if (grab.joinable()) grab.join();
    if (encode.joinable()) encode.join();
    if (listen.joinable()) listen.join();
    swr_free(&resampler);
    if (fifo) av_audio_fifo_free(fifo);
    avcodec_free_context(&soundDecoder);
    avcodec_free_context(&soundEncoder);
    for (AVPacket* p : queue) av_packet_free(&p);
    sws_freeContext(scaler);
    av_frame_free(&picture);
    av_frame_free(&encoded);
    avcodec_free_context(&decoder);
    avcodec_free_context(&encoder);
    if (output) {
      if (!(output->oformat->flags & AVFMT_NOFILE)) avio_closep(&output->pb);
      avformat_free_context(output);
    }
  }

  void fail(const std::string& why) {
    std::lock_guard guard(lock);
    if (!failure) failure = why;
    stop = true;
    changed.notify_all();
  }

  void grabLoop() {
    const AVRational base = input->streams[0]->time_base;
    for (;;) {
      {
        std::lock_guard guard(lock);
        if (stop) break;
      }
      AVPacket* packet = av_packet_alloc();
      const int read = av_read_frame(input.get(), packet);
      if (read < 0) {
        av_packet_free(&packet);
        // The window closed or was unmapped, or the server went away.
        // x11grab says a failed image request in the most general words it has.
        fail(read == AVERROR(EIO) || read == AVERROR(EACCES) || read == AVERROR_EOF || read == AVERROR_EXTERNAL
                 ? "the filmed window or display went away"
                 : "the grab failed: " + averror(read));
        break;
      }
      const std::int64_t at = av_rescale_q(packet->pts, base, AV_TIME_BASE_Q);
      std::lock_guard guard(lock);
      if (cutAt != AV_NOPTS_VALUE && at > cutAt) {
        av_packet_free(&packet);
        break;
      }
      if (!started) {
        started = true;
        firstFrame = at;
      }
      lastFrame = at;
      if (queue.size() >= static_cast<std::size_t>(queueDepth)) {
        ++dropped;
        av_packet_free(&packet);
      } else {
        queue.push_back(packet);
      }
      changed.notify_all();
    }
    std::lock_guard guard(lock);
    grabbing = false;
    changed.notify_all();
  }

  // Drains one encoder's worth of packets into the file.
  bool writeOut() {
    AVPacket* out = av_packet_alloc();
    bool ok = true;
    for (;;) {
      const int got = avcodec_receive_packet(encoder, out);
      if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) break;
      if (got < 0) {
        fail("the encoder failed: " + averror(got));
        ok = false;
        break;
      }
      av_packet_rescale_ts(out, encoder->time_base, stream->time_base);
      out->stream_index = stream->index;
      std::unique_lock guard(writing);
      const int written = av_interleaved_write_frame(output, out);
      guard.unlock();
      if (written < 0) {
        fail("the file would not take a frame: " + averror(written));
        ok = false;
        break;
      }
    }
    av_packet_free(&out);
    return ok;
  }

  void encodeOne(AVPacket* packet) {
    const std::int64_t at = av_rescale_q(packet->pts, input->streams[0]->time_base, AV_TIME_BASE_Q);
    if (avcodec_send_packet(decoder, packet) < 0) return;
    while (avcodec_receive_frame(decoder, picture) == 0) {
      std::int64_t pts;
      {
        std::lock_guard guard(lock);
        pts = std::llround(static_cast<double>(at - firstFrame) * fps / 1e6);
        // Two grabs in one frame's slot: the later one waits for the next slot's frame.
        if (pts <= lastPts) continue;
        lastPts = pts;
        ++frames;
      }
      if (!scaler) {
        scaler = sws_getContext(width, height, static_cast<AVPixelFormat>(picture->format), width, height,
                                AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
        if (!scaler) {
          fail("the grab's pictures cannot be converted");
          return;
        }
      }
      av_frame_make_writable(encoded);
      // The source is read only over the even rectangle: cutting, not scaling.
      sws_scale(scaler, picture->data, picture->linesize, 0, height, encoded->data, encoded->linesize);
      encoded->pts = pts;
      if (avcodec_send_frame(encoder, encoded) < 0 || !writeOut()) {
        fail("the encoder refused a frame");
        return;
      }
    }
  }

  // Drains the sound encoder into the file.
  bool writeSound() {
    AVPacket* out = av_packet_alloc();
    bool ok = true;
    for (;;) {
      const int got = avcodec_receive_packet(soundEncoder, out);
      if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) break;
      if (got < 0) {
        fail("the sound encoder failed: " + averror(got));
        ok = false;
        break;
      }
      av_packet_rescale_ts(out, soundEncoder->time_base, soundStream->time_base);
      out->stream_index = soundStream->index;
      std::unique_lock guard(writing);
      const int written = av_interleaved_write_frame(output, out);
      guard.unlock();
      if (written < 0) {
        fail("the writer refused sound: " + averror(written));
        ok = false;
        break;
      }
    }
    av_packet_free(&out);
    return ok;
  }

  // Encodes whole frames of what the fifo holds; at the end, what is left too.
  bool encodeSound(bool last) {
    const int size = soundEncoder->frame_size > 0 ? soundEncoder->frame_size : 1024;
    while (av_audio_fifo_size(fifo) >= size || (last && av_audio_fifo_size(fifo) > 0)) {
      AVFrame* frame = av_frame_alloc();
      frame->nb_samples = std::min(size, av_audio_fifo_size(fifo));
      frame->format = soundEncoder->sample_fmt;
      frame->sample_rate = soundRate;
      av_channel_layout_copy(&frame->ch_layout, &soundEncoder->ch_layout);
      if (av_frame_get_buffer(frame, 0) < 0) {
        av_frame_free(&frame);
        return false;
      }
      av_audio_fifo_read(fifo, reinterpret_cast<void**>(frame->data), frame->nb_samples);
      frame->pts = soundPts;
      soundPts += frame->nb_samples;
      const bool sent = avcodec_send_frame(soundEncoder, frame) >= 0;
      av_frame_free(&frame);
      if (!sent || !writeSound()) return false;
    }
    return true;
  }

  void listenLoop() {
    const AVRational base = sound->streams[0]->time_base;
    AVFrame* heard = av_frame_alloc();
    AVFrame* converted = av_frame_alloc();
    // The server hands sound over some way behind the picture: after the cut, what
    // it still holds up to the cut is read too, for a second at most.
    std::optional<std::chrono::steady_clock::time_point> drainUntil;
    for (;;) {
      std::int64_t cut = AV_NOPTS_VALUE;
      {
        std::lock_guard guard(lock);
        if (stop) {
          if (!drainUntil) drainUntil = std::chrono::steady_clock::now() + std::chrono::seconds(1);
          cut = cutAt;
        }
      }
      if (drainUntil && (cut == AV_NOPTS_VALUE || std::chrono::steady_clock::now() > *drainUntil)) break;
      AVPacket* packet = av_packet_alloc();
      if (av_read_frame(sound.get(), packet) < 0) {
        av_packet_free(&packet);
        break;  // the server went away: the take goes on without sound
      }
      const std::int64_t at = av_rescale_q(packet->pts, base, AV_TIME_BASE_Q);
      std::int64_t first;
      {
        std::lock_guard guard(lock);
        first = started ? firstFrame : AV_NOPTS_VALUE;
      }
      if (cut != AV_NOPTS_VALUE && at >= cut) {
        av_packet_free(&packet);
        break;
      }
      // Sound before the first frame has no picture to go with.
      if (first == AV_NOPTS_VALUE || at < first) {
        av_packet_free(&packet);
        continue;
      }
      if (soundPts == AV_NOPTS_VALUE) soundPts = av_rescale(at - first, soundRate, 1000000);
      if (avcodec_send_packet(soundDecoder, packet) >= 0) {
        while (avcodec_receive_frame(soundDecoder, heard) == 0) {
          av_frame_unref(converted);
          converted->format = soundEncoder->sample_fmt;
          converted->sample_rate = soundRate;
          av_channel_layout_copy(&converted->ch_layout, &soundEncoder->ch_layout);
          // The server names no layout for its two channels; stereo is what they are.
          if (heard->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
            const int channels = heard->ch_layout.nb_channels;
            av_channel_layout_uninit(&heard->ch_layout);
            av_channel_layout_default(&heard->ch_layout, channels);
          }
          // The converter is set up from the first frame: the server's layout is only
          // known once it sends sound.
          if (!resampler && (swr_alloc_set_opts2(&resampler, &soundEncoder->ch_layout, AV_SAMPLE_FMT_FLTP, soundRate,
                                                 &heard->ch_layout, static_cast<AVSampleFormat>(heard->format),
                                                 heard->sample_rate, 0, nullptr) < 0 ||
                             swr_init(resampler) < 0)) {
            swr_free(&resampler);
            continue;
          }
          if (swr_convert_frame(resampler, converted, heard) < 0) continue;
          av_audio_fifo_write(fifo, reinterpret_cast<void**>(converted->data), converted->nb_samples);
        }
      }
      av_packet_free(&packet);
      if (!encodeSound(false)) break;
    }
    encodeSound(true);
    avcodec_send_frame(soundEncoder, nullptr);
    writeSound();
    av_frame_free(&heard);
    av_frame_free(&converted);
  }

  // Sets up the sound's decoder, resampler, encoder and stream; before the header.
  void addSound(Input heard) {
    const AVCodecParameters* raw = heard->streams[0]->codecpar;
    const AVCodec* pcm = avcodec_find_decoder(raw->codec_id);
    const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (!pcm || !aac) throw std::runtime_error("this ffmpeg cannot encode AAC sound");
    soundDecoder = avcodec_alloc_context3(pcm);
    if (avcodec_parameters_to_context(soundDecoder, raw) < 0 || avcodec_open2(soundDecoder, pcm, nullptr) < 0)
      throw std::runtime_error("the sound server's samples cannot be read");
    soundEncoder = avcodec_alloc_context3(aac);
    soundEncoder->sample_rate = soundRate;
    soundEncoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    soundEncoder->bit_rate = 128000;
    soundEncoder->time_base = AVRational{1, soundRate};
    av_channel_layout_default(&soundEncoder->ch_layout, 2);
    if (output->oformat->flags & AVFMT_GLOBALHEADER) soundEncoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(soundEncoder, aac, nullptr) < 0) throw std::runtime_error("the file won't take audio");
    fifo = av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, 2, soundRate);
    soundStream = avformat_new_stream(output, nullptr);
    if (!fifo || !soundStream || avcodec_parameters_from_context(soundStream->codecpar, soundEncoder) < 0)
      throw std::runtime_error("the file won't take audio");
    soundStream->time_base = soundEncoder->time_base;
    sound = std::move(heard);
  }

  void encodeLoop() {
    for (;;) {
      AVPacket* packet = nullptr;
      {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return !queue.empty() || !grabbing; });
        if (queue.empty()) break;
        packet = queue.front();
        queue.pop_front();
      }
      encodeOne(packet);
      av_packet_free(&packet);
    }
    avcodec_send_frame(encoder, nullptr);
    writeOut();
  }
};

std::optional<std::string> X11Recorder::screenRefusal(std::string display) {
  display = displayName(std::move(display));
  if (display.empty()) {
    if (waylandSession())
      return "This is a Wayland session with no X display for Tavorin: it films through XWayland, which is not "
             "running. Start XWayland (or log in to an X11 session), then relaunch Tavorin.";
    return "There is no X display to film: DISPLAY is not set. Start Tavorin inside an X11 session.";
  }
  xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
  if (!c || xcb_connection_has_error(c)) {
    if (c) xcb_disconnect(c);
    return "The X display " + display + " does not let Tavorin in. Allow this user on it (xhost, or the "
           "session's XAUTHORITY), then relaunch Tavorin.";
  }
  std::optional<std::string> refusal;
  const auto roots = xcb_setup_roots_iterator(xcb_get_setup(c));
  if (!roots.rem) {
    refusal = "The X display " + display + " has no screen to film.";
  } else {
    // One pixel of the root window proves the server hands over pictures.
    xcb_generic_error_t* error = nullptr;
    auto* image = xcb_get_image_reply(
        c, xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, roots.data->root, 0, 0, 1, 1, ~0u), &error);
    if (!image || error) {
      refusal = "The X display " + display + " refuses to hand over pictures of its screen.";
      if (waylandSession())
        refusal = "This is a Wayland session: XWayland on " + display +
                  " shows Tavorin only X11 windows and not the screen. Film an X11 application with "
                  "`capture app=`, or log in to an X11 session.";
    }
    std::free(image);
    std::free(error);
  }
  xcb_disconnect(c);
  return refusal;
}

X11Recorder::X11Recorder(std::string display, WindowFinder finder)
    : display_(displayName(std::move(display))), finder_(std::move(finder)) {}

X11Recorder::~X11Recorder() = default;

bool X11Recorder::isRolling() const { return session_ != nullptr; }

std::optional<std::string> X11Recorder::failure() const {
  if (!session_) return std::nullopt;
  std::lock_guard guard(session_->lock);
  return session_->failure;
}

void X11Recorder::roll(const std::filesystem::path& to, const std::optional<CaptureConfig>& capture) {
  if (session_) throw RecordError::writerFailed("the camera is already rolling");
  silence_.reset();
  std::optional<unsigned long> window;
  if (capture && capture->app && !capture->app->empty()) {
    if (!finder_) throw RecordError::noSuchApp(*capture->app);
    window = finder_(*capture->app);
  }
  switch (reach(display_, window)) {
    case Reach::noAccess: throw RecordError::noPermission();
    case Reach::noTarget:
      if (window) throw RecordError::noWindow(*capture->app);
      throw RecordError::writerFailed("the display " + display_ + " has no screen to film");
    case Reach::ok: break;
  }

  auto s = std::make_unique<Session>();
  s->fps = capture && capture->fps ? std::max(*capture->fps, 1) : defaultFps;
  s->input = openGrab(display_, window, s->fps);
  // The sound is asked for first, so a server that is not there costs nothing later.
  std::optional<Input> heard;
  if (capture && capture->audio.value_or(false)) {
    try {
      heard = openSound();
    } catch (const std::exception& e) {
      silence_ = e.what();
    }
  }
  const AVCodecParameters* grabbed = s->input->streams[0]->codecpar;
  // Cut down to even numbers, as H.264 in 4:2:0 needs, and never under 2.
  s->width = std::max(2, grabbed->width & ~1);
  s->height = std::max(2, grabbed->height & ~1);
  if (grabbed->width < 2 || grabbed->height < 2) throw RecordError::noWindow(capture && capture->app ? *capture->app : display_);

  const AVCodec* rawvideo = avcodec_find_decoder(grabbed->codec_id);
  s->decoder = avcodec_alloc_context3(rawvideo);
  if (!rawvideo || !s->decoder || avcodec_parameters_to_context(s->decoder, grabbed) < 0 ||
      avcodec_open2(s->decoder, rawvideo, nullptr) < 0)
    throw RecordError::writerFailed("the grab's pictures cannot be read");

  const AVCodec* h264 = avcodec_find_encoder_by_name("libx264");
  if (!h264) throw RecordError::writerFailed("this ffmpeg has no libx264 encoder");
  if (avformat_alloc_output_context2(&s->output, nullptr, nullptr, to.c_str()) < 0 || !s->output)
    throw RecordError::writerFailed("the file won't take video");
  s->encoder = avcodec_alloc_context3(h264);
  s->encoder->width = s->width;
  s->encoder->height = s->height;
  s->encoder->pix_fmt = AV_PIX_FMT_YUV420P;
  s->encoder->time_base = AVRational{1, s->fps};
  s->encoder->framerate = AVRational{s->fps, 1};
  s->encoder->gop_size = s->fps * 2;
  s->encoder->thread_count = 0;
  if (s->output->oformat->flags & AVFMT_GLOBALHEADER) s->encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* options = nullptr;
  // Fast enough to keep up with a full screen on a laptop; screen pictures compress well.
  av_dict_set(&options, "preset", "superfast", 0);
  av_dict_set(&options, "crf", "20", 0);
  const int opened = avcodec_open2(s->encoder, h264, &options);
  av_dict_free(&options);
  if (opened < 0) throw RecordError::writerFailed("the encoder would not start: " + averror(opened));
  s->stream = avformat_new_stream(s->output, nullptr);
  if (!s->stream || avcodec_parameters_from_context(s->stream->codecpar, s->encoder) < 0)
    throw RecordError::writerFailed("the file won't take video");
  s->stream->time_base = s->encoder->time_base;
  if (heard) {
    try {
      s->addSound(std::move(*heard));
    } catch (const std::exception& e) {
      silence_ = e.what();
      avcodec_free_context(&s->soundDecoder);
      avcodec_free_context(&s->soundEncoder);
      swr_free(&s->resampler);
      if (s->fifo) av_audio_fifo_free(s->fifo);
      s->fifo = nullptr;
      // A stream added and then given up would be an empty track: start the file again.
      if (s->soundStream) throw RecordError::writerFailed(e.what());
    }
  }
  if (!(s->output->oformat->flags & AVFMT_NOFILE)) {
    const int file = avio_open(&s->output->pb, to.c_str(), AVIO_FLAG_WRITE);
    if (file < 0) throw RecordError::writerFailed("the file would not open: " + averror(file));
  }
  const int header = avformat_write_header(s->output, nullptr);
  if (header < 0) throw RecordError::writerFailed(averror(header));

  s->picture = av_frame_alloc();
  s->encoded = av_frame_alloc();
  s->encoded->format = AV_PIX_FMT_YUV420P;
  s->encoded->width = s->width;
  s->encoded->height = s->height;
  if (av_frame_get_buffer(s->encoded, 0) < 0) throw RecordError::writerFailed("out of memory for a frame");

  Session* raw = s.get();
  s->grab = std::thread([raw] { raw->grabLoop(); });
  s->encode = std::thread([raw] { raw->encodeLoop(); });
  if (s->sound) s->listen = std::thread([raw] { raw->listenLoop(); });
  {
    std::unique_lock guard(s->lock);
    s->changed.wait_for(guard, firstFrameWait, [&] { return s->started || s->failure.has_value(); });
    if (!s->started) {
      const std::string why = s->failure.value_or("");
      guard.unlock();
      s.reset();  // stops both threads; the half-made file is the caller's to remove
      if (!why.empty()) throw RecordError::writerFailed(why);
      throw RecordError::cameraBlocked("no frames arrived in " + std::to_string(firstFrameWait.count() / 1000) + "s");
    }
  }
  session_ = std::move(s);
}

FilmedSpan X11Recorder::cut() {
  if (!session_) throw RecordError::writerFailed("the camera was not rolling");
  std::unique_ptr<Session> s = std::move(session_);
  {
    std::lock_guard guard(s->lock);
    s->stop = true;
    // x11grab stamps its grabs with this clock.
    s->cutAt = av_gettime();
  }
  s->changed.notify_all();
  s->grab.join();
  s->encode.join();
  if (s->listen.joinable()) s->listen.join();
  const int trailer = av_write_trailer(s->output);
  FilmedSpan span;
  std::optional<std::string> failure;
  {
    std::lock_guard guard(s->lock);
    span.frames = s->frames;
    span.dropped = s->dropped;
    if (s->firstFrame != AV_NOPTS_VALUE && s->lastFrame != AV_NOPTS_VALUE)
      span.seconds = static_cast<double>(s->lastFrame - s->firstFrame) / 1e6;
    failure = s->failure;
  }
  if (trailer < 0 && !failure) failure = "the file could not be finished: " + averror(trailer);
  s.reset();
  if (failure && failure->find("went away") == std::string::npos) throw RecordError::writerFailed(*failure);
  return span;
}

CameraVerdict X11Recorder::check(const std::optional<CaptureConfig>& capture) const {
  if (!capture || !capture->app || capture->app->empty()) return check(std::optional<unsigned long>());
  if (!finder_) return CameraVerdict{CameraVerdict::Kind::noTarget, 0, std::nullopt};
  try {
    return check(finder_(*capture->app));
  } catch (const RecordError& e) {
    return CameraVerdict{CameraVerdict::Kind::noTarget, 0, std::string(e.what())};
  }
}

CameraVerdict X11Recorder::check(std::optional<unsigned long> window, std::chrono::milliseconds deadline) const {
  CameraVerdict verdict;
  switch (reach(display_, window)) {
    case Reach::noAccess: verdict.kind = CameraVerdict::Kind::noAccess; return verdict;
    case Reach::noTarget: verdict.kind = CameraVerdict::Kind::noTarget; return verdict;
    case Reach::ok: break;
  }
  const auto began = std::chrono::steady_clock::now();
  // The grab blocks in its own thread; a server that never answers leaves it there
  // and the verdict is given at the deadline all the same.
  struct Look {
    std::mutex lock;
    std::condition_variable done;
    std::optional<std::string> seen;
    bool framed = false, finished = false;
  };
  auto look = std::make_shared<Look>();
  std::thread([look, display = display_, window] {
    std::optional<std::string> seen;
    bool framed = false;
    try {
      Input input = openGrab(display, window, 10);
      AVPacket* packet = av_packet_alloc();
      framed = av_read_frame(input.get(), packet) >= 0 && packet->size > 0;
      if (!framed) seen = "the grab gave no picture";
      av_packet_free(&packet);
    } catch (const std::exception& e) {
      seen = e.what();
    }
    std::lock_guard guard(look->lock);
    look->framed = framed;
    look->seen = seen;
    look->finished = true;
    look->done.notify_all();
  }).detach();
  std::unique_lock guard(look->lock);
  look->done.wait_for(guard, deadline, [&] { return look->finished; });
  if (look->framed) {
    verdict.kind = CameraVerdict::Kind::proven;
    verdict.secondsToFirstFrame = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  } else {
    verdict.kind = CameraVerdict::Kind::blocked;
    verdict.seen = look->finished ? look->seen.value_or("no frames arrived") : "no frames arrived";
  }
  return verdict;
}

}  // namespace tavorin
