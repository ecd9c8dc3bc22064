#include "app/export/Exporter.hpp"

#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <system_error>

#include "app/export/ChildProcess.hpp"
#include "app/export/ErrorLog.hpp"
#include "app/export/FFmpegProgress.hpp"
#include "kit/Cut.hpp"
#include "kit/Looks.hpp"
#include "kit/Zooms.hpp"
#include "platform/Footage.hpp"

namespace tavorin {

namespace fs = std::filesystem;

namespace {

std::string f4(double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.4f", v);
  return buffer;
}

std::string fmt(const char* pattern, double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, pattern, v);
  return buffer;
}

double speed(const Segment& s) { return std::clamp(s.rate.value_or(1.0), Cut::minRate, Cut::maxRate); }

std::string join(const std::vector<std::string>& parts, const std::string& by) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) out += (i ? by : "") + parts[i];
  return out;
}

std::vector<std::string> head(bool followed) {
  std::vector<std::string> out = {"-y", "-hide_banner", "-loglevel", "error"};
  if (followed) out.insert(out.end(), {"-progress", "pipe:1"});
  return out;
}

void takeInput(std::vector<std::string>& args, const ExportPlan& plan, const fs::path& base) {
  args.insert(args.end(), {"-ss", f4(plan.trimHead), "-t", f4(plan.hasCut() ? plan.sourceEnd() : plan.duration), "-i",
                           (base / plan.video).string()});
}

ExportSize sizeFor(const ExportPlan& plan, const Exporter::Picture& picture) {
  return Export::size(plan.target.value_or(ExportTarget{}), picture.width, picture.height, picture.fps);
}

bool lookOn(const ExportPlan& plan) { return plan.look && Looks::isOn(plan.look); }

std::string uniqueName(const fs::path& folder, const std::string& name, const std::string& suffix) {
  std::error_code ec;
  for (int n = 1;; ++n) {
    const std::string stem = n == 1 ? name : name + " " + std::to_string(n);
    const fs::path candidate = folder / (stem + "." + suffix);
    if (!fs::exists(candidate, ec)) return candidate.string();
  }
}

}  // namespace

FFmpegSearch FFmpegSearch::besideThisProgram() {
  FFmpegSearch search;
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) search.beside = self.parent_path();
  return search;
}

ExportError ExportError::launchFailed(const std::string& why) {
  return {Kind::launchFailed, "couldn't start ffmpeg: " + why};
}
ExportError ExportError::busy() { return {Kind::busy, "an export is already running"}; }
ExportError ExportError::noFFmpeg(const fs::path& first) {
  return {Kind::noFFmpeg, "ffmpeg isn't where Tavorin expects it (" + first.string() +
                              "). Install it once: apt install ffmpeg."};
}
ExportError ExportError::nothingToExport() { return {Kind::nothingToExport, "there is nothing to export yet"}; }
ExportError ExportError::noTake() {
  return {Kind::noTake, "no take to export — shoot one first, or pick one with take=<id>"};
}
ExportError ExportError::cannotPaint() {
  return {Kind::cannotPaint, "couldn't paint the background — the picture's size didn't come back"};
}
ExportError ExportError::cannotWrite(const fs::path& folder, const std::string& why) {
  return {Kind::cannotWrite, "couldn't write the export into " + folder.string() + ": " + why};
}

std::string name(Exporter::Phase p) {
  switch (p) {
    case Exporter::Phase::idle: return "idle";
    case Exporter::Phase::running: return "running";
    case Exporter::Phase::done: return "done";
    case Exporter::Phase::failed: return "failed";
  }
  return "idle";
}

Exporter::Exporter(Post post, Search search, std::optional<fs::path> fontsDir)
    : post_(std::move(post)),
      search_(std::move(search)),
      fontsDir_(std::move(fontsDir)),
      alive_(std::make_shared<bool>(true)),
      log_(std::make_shared<ErrorLog>()) {}

Exporter::~Exporter() {
  *alive_ = false;
  process_.reset();
  clearScratch();
  if (partial_) {
    std::error_code ec;
    fs::remove(*partial_, ec);
  }
}

std::string Exporter::errorTail() const { return log_->tail().joined(); }

std::optional<fs::path> Exporter::findFFmpeg(const Search& search, const std::string& searchPath,
                                             std::vector<fs::path>* searched) {
  std::vector<fs::path> places;
  if (!search.beside.empty()) places.push_back(search.beside / "ffmpeg");
  places.insert(places.end(), search.places.begin(), search.places.end());
  for (size_t start = 0; search.usePath && start <= searchPath.size();) {
    const size_t colon = std::min(searchPath.find(':', start), searchPath.size());
    const std::string dir = searchPath.substr(start, colon - start);
    if (!dir.empty()) places.push_back(fs::path(dir) / "ffmpeg");
    start = colon + 1;
  }
  if (searched) *searched = places;
  for (const auto& place : places) {
    std::error_code ec;
    if (fs::is_regular_file(place, ec) && ::access(place.c_str(), X_OK) == 0) return place;
  }
  return std::nullopt;
}

std::string Exporter::filterQuoted(const std::string& path) {
  // Two readings: the option parser takes backslash escapes, then the graph parser reads
  // the quoted text literally, where a quote can only be closed, escaped and reopened.
  std::string option;
  for (char c : path) {
    if (c == '\\' || c == '\'' || c == ':') option += '\\';
    option += c;
  }
  std::string graph;
  for (char c : option) graph += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return graph;
}

std::optional<double> Exporter::progressOf(const std::string& line, double total) {
  return FFmpegProgress::share(line, total);
}

Exporter::LookInputs Exporter::lookInputs(double fps, int from, const LookPainter::Sheets& sheets) {
  LookInputs out;
  const std::string rate = Zooms::rate(fps > 0.1 ? fps : 30);
  auto still = [&](const fs::path& file) {
    out.args.insert(out.args.end(), {"-loop", "1", "-framerate", rate});
    // The image reader takes a percent sign for a frame number: a folder named with
    // one must be read as the one file it is.
    if (file.string().find('%') != std::string::npos) out.args.insert(out.args.end(), {"-pattern_type", "none"});
    out.args.insert(out.args.end(), {"-i", file.string()});
  };
  still(sheets.background);
  out.ground = from;
  out.next = from + 1;
  if (sheets.mask) {
    still(*sheets.mask);
    out.mask = out.next++;
  }
  return out;
}

Exporter::Chain Exporter::pictureChain(const ExportPlan& plan, const std::optional<Burn>& burn,
                                       const Picture& picture, double fps,
                                       const std::optional<LookPainter::Sheets>& sheets, int ground, int mask) {
  Chain chain;
  std::string label = "[0:v]";
  if (plan.hasCut()) {
    const size_t n = plan.cut.size();
    std::string split = label + "split=" + std::to_string(n);
    for (size_t i = 0; i < n; ++i) split += "[p" + std::to_string(i) + "]";
    chain.filters.push_back(split);
    std::string outs;
    for (size_t i = 0; i < n; ++i) {
      const auto& s = plan.cut[i];
      const std::string o = "[c" + std::to_string(i) + "]";
      chain.filters.push_back("[p" + std::to_string(i) + "]trim=start=" + f4(s.from) + ":end=" + f4(s.to) + "," +
                              (std::abs(speed(s) - 1) < 1e-9 ? std::string("setpts=PTS-STARTPTS")
                                                             : "setpts=(PTS-STARTPTS)/" + f4(speed(s))) +
                              o);
      outs += o;
    }
    chain.filters.push_back(n == 1 ? outs + "null[vc]" : outs + "concat=n=" + std::to_string(n) + ":v=1:a=0[vc]");
    label = "[vc]";
  }
  if (plan.hasZoom() && picture.width > 0 && picture.height > 0) {
    if (auto zoom = Zooms::filter(plan.zooms, picture.width, picture.height, picture.fps, "in_time")) {
      chain.filters.push_back(label + *zoom + "[vz]");
      label = "[vz]";
    }
  }
  if (burn) {
    std::string f = label + "subtitles='" + filterQuoted(burn->ass.string()) + "'";
    if (burn->fontsDir) f += ":fontsdir='" + filterQuoted(burn->fontsDir->string()) + "'";
    chain.filters.push_back(f + "[vs]");
    label = "[vs]";
  }
  if (sheets && ground >= 0) {
    const auto& r = sheets->picture;
    const std::string scale =
        "scale=" + std::to_string(int(r.width)) + ":" + std::to_string(int(r.height)) + ":flags=lanczos";
    std::string pictureLabel;
    if (mask >= 0) {
      chain.filters.push_back(label + scale + ",format=rgba[lp]");
      chain.filters.push_back("[" + std::to_string(mask) + ":v]format=gray[lm]");
      chain.filters.push_back("[lp][lm]alphamerge=shortest=1[lpm]");
      pictureLabel = "[lpm]";
    } else {
      chain.filters.push_back(label + scale + "[lp]");
      pictureLabel = "[lp]";
    }
    chain.filters.push_back("[" + std::to_string(ground) + ":v]format=rgba[lg]");
    chain.filters.push_back("[lg]" + pictureLabel + "overlay=x=" + std::to_string(int(r.x)) +
                            ":y=" + std::to_string(int(r.y)) + ":shortest=1[vl]");
    label = "[vl]";
  } else {
    ExportSize size = sizeFor(plan, {picture.width, picture.height, fps});
    if (auto scale = Export::scaleFilter(size)) {
      chain.filters.push_back(label + *scale + "[vt]");
      label = "[vt]";
    }
  }
  chain.label = label == "[0:v]" ? "" : label;
  return chain;
}

std::vector<std::string> Exporter::takeSoundFilters(const ExportPlan& plan, double gain) {
  std::vector<std::string> out;
  std::string source = "[0:a]";
  if (plan.hasCut()) {
    const size_t n = plan.cut.size();
    std::vector<std::string> ins;
    std::string split = "[0:a]asplit=" + std::to_string(n);
    for (size_t i = 0; i < n; ++i) {
      ins.push_back("[sa" + std::to_string(i) + "]");
      split += ins.back();
    }
    out.push_back(split);
    std::string outs;
    for (size_t i = 0; i < n; ++i) {
      const auto& s = plan.cut[i];
      std::string f = ins[i] + "atrim=start=" + f4(s.from) + ":end=" + f4(s.to) + ",asetpts=PTS-STARTPTS";
      if (std::abs(speed(s) - 1) > 1e-9)
        if (auto tempo = Atempo::filter(speed(s))) f += "," + *tempo;
      const std::string o = "[sb" + std::to_string(i) + "]";
      out.push_back(f + o);
      outs += o;
    }
    out.push_back(n == 1 ? outs + "anull[sc]" : outs + "concat=n=" + std::to_string(n) + ":v=0:a=1[sc]");
    source = "[sc]";
  }
  out.push_back(source + fmt("volume=%.2fdB", gain) + ",apad[sys]");
  return out;
}

std::vector<std::string> Exporter::arguments(const ExportPlan& plan, const fs::path& base, const fs::path& out,
                                             const std::optional<Burn>& burn, std::optional<double> systemAudio,
                                             const Picture& picture,
                                             const std::optional<LookPainter::Sheets>& sheets) {
  const ExportSize size = sizeFor(plan, picture);
  std::vector<std::string> args = head(true);
  takeInput(args, plan, base);
  int next = 1;
  for (const auto& piece : plan.pieces) args.insert(args.end(), {"-i", (base / piece.audio).string()}), ++next;
  const int firstBed = next;
  for (const auto& bed : plan.beds)
    args.insert(args.end(), {"-ss", f4(bed.trimIn), "-t", f4(bed.seconds), "-i", (base / bed.file).string()}), ++next;
  int silent = -1;
  if (plan.pieces.empty()) {
    args.insert(args.end(), {"-f", "lavfi", "-t", f4(plan.duration), "-i", "anullsrc=channel_layout=stereo:sample_rate=48000"});
    silent = next++;
  }
  int ground = -1, mask = -1;
  if (sheets) {
    const auto inputs = lookInputs(size.fps, next, *sheets);
    args.insert(args.end(), inputs.args.begin(), inputs.args.end());
    ground = inputs.ground;
    mask = inputs.mask;
    next = inputs.next;
  }

  std::vector<std::string> filters;
  const Chain chain = pictureChain(plan, burn, picture, size.fps, sheets, ground, mask);
  filters.insert(filters.end(), chain.filters.begin(), chain.filters.end());

  if (plan.pieces.empty()) {
    filters.push_back("[" + std::to_string(silent) + ":a]anull[voice]");
  } else {
    std::string labels;
    for (size_t i = 0; i < plan.pieces.size(); ++i) {
      const auto& piece = plan.pieces[i];
      std::vector<std::string> parts;
      if (piece.slice) parts.push_back(piece.slice->filter());
      if (auto tempo = Atempo::filter(piece.rate)) parts.push_back(*tempo);
      const long ms = std::lround(piece.at * 1000);
      if (ms >= 1) parts.push_back("adelay=" + std::to_string(ms) + ":all=1");
      parts.push_back("apad");
      const std::string label = "[a" + std::to_string(i) + "]";
      filters.push_back("[" + std::to_string(i + 1) + ":a]" + join(parts, ",") + label);
      labels += label;
    }
    filters.push_back(labels + "amix=inputs=" + std::to_string(plan.pieces.size()) +
                      ":normalize=0:dropout_transition=0,loudnorm=I=-16:TP=-1.5:LRA=11[voice]");
  }
  std::vector<std::string> mix = {"[voice]"};
  for (size_t i = 0; i < plan.beds.size(); ++i) {
    const auto& bed = plan.beds[i];
    std::string f = "[" + std::to_string(firstBed + int(i)) + ":a]" + fmt("volume=%.2fdB", bed.gainDb);
    const long ms = std::lround(bed.at * 1000);
    if (ms >= 1) f += ",adelay=" + std::to_string(ms) + ":all=1";
    const std::string label = "[m" + std::to_string(i) + "]";
    filters.push_back(f + ",apad" + label);
    mix.push_back(label);
  }
  if (systemAudio) {
    const auto sound = takeSoundFilters(plan, *systemAudio);
    filters.insert(filters.end(), sound.begin(), sound.end());
    mix.push_back("[sys]");
  }
  if (mix.size() == 1)
    filters.push_back("[voice]anull[mix]");
  else
    filters.push_back(join(mix, "") + "amix=inputs=" + std::to_string(mix.size()) +
                      ":normalize=0:dropout_transition=0[mix]");

  args.insert(args.end(), {"-filter_complex", join(filters, ";"), "-map", chain.label.empty() ? "0:v" : chain.label,
                           "-map", "[mix]", "-t", f4(plan.duration)});
  if (plan.target && plan.target->fps) args.insert(args.end(), {"-r", f4(size.fps)});
  args.insert(args.end(), {"-c:v", "libx264", "-preset", "medium", "-crf",
                           std::to_string(Export::crf(plan.target.value_or(ExportTarget{}).effectiveQuality())),
                           "-pix_fmt", "yuv420p", "-c:a", "aac", "-b:a", "192k", "-movflags", "+faststart",
                           out.string()});
  return args;
}

std::vector<std::vector<std::string>> Exporter::gifArguments(const ExportPlan& plan, const fs::path& base,
                                                             const fs::path& out, const fs::path& palette,
                                                             const std::optional<Burn>& burn,
                                                             const Picture& picture) {
  ExportTarget target = plan.target.value_or(ExportTarget{});
  target.format = ExportFormat::gif;
  const ExportSize size = Export::size(target, picture.width, picture.height, picture.fps);
  // The GIF's own size and rate close the chain, so the chain itself keeps the source's.
  ExportPlan bare = plan;
  bare.target.reset();
  const Chain chain = pictureChain(bare, burn, picture, size.fps, std::nullopt, -1, -1);
  std::vector<std::string> filters = chain.filters;
  const std::string label = chain.label.empty() ? "[0:v]" : chain.label;
  char rate[32];
  std::snprintf(rate, sizeof rate, "%g", size.fps);
  filters.push_back(label + "fps=" + rate + ",scale=" + std::to_string(size.width) + ":" +
                    std::to_string(size.height) + ":flags=lanczos[gs]");
  const std::string graph = join(filters, ";");

  std::vector<std::string> first = head(false);
  takeInput(first, plan, base);
  first.insert(first.end(), {"-filter_complex", graph + ";[gs]palettegen=stats_mode=diff[p]", "-map", "[p]",
                             "-frames:v", "1", palette.string()});
  std::vector<std::string> second = head(true);
  takeInput(second, plan, base);
  second.insert(second.end(),
                {"-i", palette.string(), "-filter_complex",
                 graph + ";[gs][1:v]paletteuse=dither=bayer:bayer_scale=5:diff_mode=rectangle[v]", "-map", "[v]",
                 "-t", f4(plan.duration), "-loop", "0", out.string()});
  return {first, second};
}

fs::path Exporter::exportFilm(const ExportPlan& plan, const fs::path& base, const std::string& name,
                              const Subtitles::Style& subtitles, std::optional<double> systemAudio,
                              std::optional<fs::path> destination) {
  if (phase_ == Phase::running || process_) throw ExportError::busy();
  if (plan.video.empty()) throw ExportError::noTake();
  if (!(plan.duration > 0)) throw ExportError::nothingToExport();
  const char* pathEnv = std::getenv("PATH");
  std::vector<fs::path> searched;
  const auto ffmpeg = findFFmpeg(search_, pathEnv ? pathEnv : "", &searched);
  if (!ffmpeg) throw ExportError::noFFmpeg(searched.empty() ? fs::path("ffmpeg") : searched.front());

  const fs::path video = base / plan.video;
  // A film that won't say its size still goes to ffmpeg, whose words then say why.
  const auto probed = Footage::probe(video, std::chrono::seconds(5));
  Picture picture;
  if (probed.size) picture.width = probed.size->width, picture.height = probed.size->height;
  picture.fps = probed.rate.value_or(30);
  const ExportFormat format = plan.target.value_or(ExportTarget{}).effectiveFormat();
  const ExportSize size = sizeFor(plan, picture);
  if (lookOn(plan) && format == ExportFormat::mp4 && !probed.size) throw ExportError::cannotPaint();

  // Everything is made inside a scratch folder beside the output, so the finished film
  // arrives by a rename and a failure leaves nothing under its name.
  const fs::path folder = destination.value_or(base / "export");
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec) throw ExportError::cannotWrite(folder, ec.message());
  std::string pattern = (folder / ".export-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw ExportError::cannotWrite(folder, std::generic_category().message(errno));
  const fs::path scratch = pattern;
  auto discard = [&] { fs::remove_all(scratch, ec); };

  try {
    std::optional<LookPainter::Sheets> sheets;
    if (lookOn(plan) && format == ExportFormat::mp4) {
      const Looks::Rect frame{0, 0, double(size.width), double(size.height)};
      const auto rect = Looks::pixels(frame.width, frame.height, plan.look);
      LookPainter::Sheets painted{scratch / "look-bg.png", std::nullopt, {size.width, size.height}, rect};
      LookPainter::write(LookPainter::background(*plan.look, painted.frame, rect, base), painted.background);
      const double corner = Looks::corner(rect.width, rect.height, plan.look);
      if (corner > 0) {
        painted.mask = scratch / "look-mask.png";
        LookPainter::write(LookPainter::mask({int(rect.width), int(rect.height)}, corner), *painted.mask);
      }
      sheets = painted;
    }
    std::optional<Burn> burn;
    if (!plan.captions.empty() && Subtitles::burns(subtitles)) {
      const fs::path ass = scratch / "captions.ass";
      const std::string text = Subtitles::ass(plan.captions, subtitles, picture.width, picture.height);
      if (FILE* f = std::fopen(ass.c_str(), "wb")) {
        const bool whole = std::fwrite(text.data(), 1, text.size(), f) == text.size();
        if (std::fclose(f) != 0 || !whole) throw ExportError::cannotWrite(folder, "the captions didn't fit");
      } else {
        throw ExportError::cannotWrite(folder, std::generic_category().message(errno));
      }
      burn = Burn{ass, fontsDir_};
    }
    if (systemAudio && !probed.hasAudio.value_or(false)) systemAudio.reset();

    const std::string suffix = Export::suffix(format);
    const fs::path partial = scratch / ("film." + suffix);
    std::vector<std::vector<std::string>> passes;
    if (format == ExportFormat::gif)
      passes = gifArguments(plan, base, partial, scratch / "palette.png", burn, picture);
    else
      passes = {arguments(plan, base, partial, burn, systemAudio, picture, sheets)};

    ffmpeg_ = *ffmpeg;
    lastPasses_ = passes;
    skipped_ = plan.skipped;
    failure_.reset();
    progress_ = 0;
    scratch_ = scratch;
    partial_ = partial;
    output_ = fs::path(uniqueName(folder, name, suffix));
    pending_.assign(passes.begin() + 1, passes.end());
    phase_ = Phase::running;
    start(passes.front(), plan.duration);
  } catch (const ExportError& e) {
    discard();
    scratch_.reset();
    partial_.reset();
    if (e.kind == ExportError::Kind::launchFailed) fail(e.what());
    throw;
  } catch (const std::exception& e) {
    discard();
    scratch_.reset();
    partial_.reset();
    throw ExportError::cannotWrite(folder, e.what());
  }
  return *output_;
}

void Exporter::start(std::vector<std::string> pass, double total) {
  total_ = total;
  log_ = std::make_shared<ErrorLog>();
  const unsigned generation = ++generation_;
  const bool followed = std::find(pass.begin(), pass.end(), "-progress") != pass.end();
  std::weak_ptr<bool> alive = alive_;
  auto hop = [this, alive](std::function<void()> work) {
    post_([alive, work = std::move(work)] {
      if (auto a = alive.lock(); a && *a) work();
    });
  };
  ChildProcess::Callbacks callbacks;
  if (followed)
    callbacks.stdoutLine = [this, hop, generation, total](const std::string& line) {
      if (auto share = progressOf(line, total))
        hop([this, generation, value = *share] {
          if (generation == generation_ && phase_ == Phase::running) progress_ = std::max(progress_, value);
        });
    };
  callbacks.stderrLine = [log = log_](const std::string& line) { log->append(line); };
  callbacks.onExit = [this, hop, generation](int status) { hop([this, generation, status] { finished(status, generation); }); };
  try {
    process_ = std::make_unique<ChildProcess>(ffmpeg_.string(), pass, std::move(callbacks));
  } catch (const std::system_error& e) {
    throw ExportError::launchFailed(e.code().message());
  }
}

void Exporter::finished(int status, unsigned generation) {
  if (generation != generation_) return;  // a cancelled pass says nothing
  process_.reset();
  if (status == 0 && !pending_.empty()) {
    auto next = pending_.front();
    pending_.erase(pending_.begin());
    try {
      start(std::move(next), total_);
    } catch (const ExportError& e) {
      fail(e.what());
    }
    return;
  }
  if (status != 0) {
    const std::string last = log_->lastLine();
    fail("ffmpeg couldn't make the file: " + (last.empty() ? "status " + std::to_string(status) : last));
    return;
  }
  std::error_code ec;
  // Another export may have taken the name meanwhile: never write over it.
  if (fs::exists(*output_, ec))
    output_ = fs::path(uniqueName(output_->parent_path(), output_->stem().string(), output_->extension().string().substr(1)));
  fs::rename(*partial_, *output_, ec);
  if (ec) {
    fail("couldn't move the finished film into place: " + ec.message());
    return;
  }
  partial_.reset();
  clearScratch();
  progress_ = 1;
  phase_ = Phase::done;
  if (onFinished) onFinished(*output_);
}

void Exporter::fail(const std::string& why) {
  process_.reset();
  pending_.clear();
  failure_ = why;
  phase_ = Phase::failed;
  clearScratch();
  partial_.reset();
  output_.reset();
  if (onFailed) onFailed(why);
}

void Exporter::clearScratch() {
  if (!scratch_) return;
  std::error_code ec;
  fs::remove_all(*scratch_, ec);
  scratch_.reset();
}

void Exporter::cancel() {
  ++generation_;
  pending_.clear();
  process_.reset();  // kills the child and waits for its pipes
  clearScratch();
  partial_.reset();
  if (phase_ == Phase::running) {
    output_.reset();
    phase_ = Phase::idle;
    progress_ = 0;
  }
}

void Exporter::forgetFinished() {
  if (phase_ == Phase::done || phase_ == Phase::failed) phase_ = Phase::idle;
}

}  // namespace tavorin
