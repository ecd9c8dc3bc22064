#include <gtest/gtest.h>

#include <algorithm>

#include "app/export/Exporter.hpp"
#include "kit/Zooms.hpp"

using namespace tavorin;

namespace {

// Every feature at once: a two-segment cut with one at double speed, a zoom, a look with
// rounded corners, burned captions, a sliced piece at four times speed, a bed and the
// take's own sound, at a smaller size and rate than the source.
ExportPlan everything() {
  ExportPlan plan;
  plan.video = "takes/t1/film.mp4";
  plan.trimHead = 0.5;
  plan.duration = 6;
  plan.pieces = {{"l1", "audio/l1.wav", 0, 2, 1, "Hello", std::nullopt},
                 {"l2", "audio/g.wav", 2.5, 1, 4, "There", ExportPlan::Piece::Slice{1.5, 4}}};
  plan.beds = {{"m1", "music/bed.wav", 1, 2, 5, -6}};
  plan.captions = {{0, 2, "Hello"}, {2.5, 1, "There"}};
  plan.cut = {{"s1", std::nullopt, 0, 4, std::nullopt}, {"s2", std::nullopt, 6, 10, 2}};
  plan.zooms = {{"z1", 1, 3, 2, std::nullopt, std::nullopt, std::nullopt}};
  plan.look = Look{true, 0.1, 0.05, false, std::nullopt};
  plan.target = ExportTarget{ExportFormat::mp4, 360, 24, ExportQuality::web, std::nullopt};
  return plan;
}

const Exporter::Burn burn{"/prod/export/.x/captions.ass", "/fonts"};

std::string zoomText(int w, int h, double fps) {
  return *Zooms::filter(everything().zooms, w, h, fps, "in_time");
}

}  // namespace

TEST(ExporterArguments, Mp4WithEveryFeature) {
  const ExportPlan plan = everything();
  const Exporter::Picture picture{1280, 720, 30};
  const LookPainter::Sheets sheets{"/s/bg.png", "/s/mask.png", {640, 360}, Looks::pixels(640, 360, plan.look)};
  ASSERT_EQ(sheets.picture, (Looks::Rect{64, 36, 512, 288}));

  const std::vector<std::string> graph = {
      "[0:v]split=2[p0][p1]",
      "[p0]trim=start=0.0000:end=4.0000,setpts=PTS-STARTPTS[c0]",
      "[p1]trim=start=6.0000:end=10.0000,setpts=(PTS-STARTPTS)/2.0000[c1]",
      "[c0][c1]concat=n=2:v=1:a=0[vc]",
      "[vc]" + zoomText(1280, 720, 30) + "[vz]",
      "[vz]subtitles='/prod/export/.x/captions.ass':fontsdir='/fonts'[vs]",
      "[vs]scale=512:288:flags=lanczos,format=rgba[lp]",
      "[5:v]format=gray[lm]",
      "[lp][lm]alphamerge=shortest=1[lpm]",
      "[4:v]format=rgba[lg]",
      "[lg][lpm]overlay=x=64:y=36:shortest=1[vl]",
      "[1:a]apad[a0]",
      "[2:a]atrim=start=1.5000:end=5.5000,asetpts=PTS-STARTPTS,atempo=2.000000,atempo=2.000000,adelay=2500:all=1,"
      "apad[a1]",
      "[a0][a1]amix=inputs=2:normalize=0:dropout_transition=0,loudnorm=I=-16:TP=-1.5:LRA=11[voice]",
      "[3:a]volume=-6.00dB,adelay=1000:all=1,apad[m0]",
      "[0:a]asplit=2[sa0][sa1]",
      "[sa0]atrim=start=0.0000:end=4.0000,asetpts=PTS-STARTPTS[sb0]",
      "[sa1]atrim=start=6.0000:end=10.0000,asetpts=PTS-STARTPTS,atempo=2.000000[sb1]",
      "[sb0][sb1]concat=n=2:v=0:a=1[sc]",
      "[sc]volume=-3.00dB,apad[sys]",
      "[voice][m0][sys]amix=inputs=3:normalize=0:dropout_transition=0[mix]",
  };
  std::string joined;
  for (const auto& f : graph) joined += (joined.empty() ? "" : ";") + f;

  const std::vector<std::string> expected = {
      "-y", "-hide_banner", "-loglevel", "error", "-progress", "pipe:1",
      "-ss", "0.5000", "-t", "10.0000", "-i", "/prod/takes/t1/film.mp4",
      "-i", "/prod/audio/l1.wav",
      "-i", "/prod/audio/g.wav",
      "-ss", "2.0000", "-t", "5.0000", "-i", "/prod/music/bed.wav",
      "-loop", "1", "-framerate", "24", "-i", "/s/bg.png",
      "-loop", "1", "-framerate", "24", "-i", "/s/mask.png",
      "-filter_complex", joined,
      "-map", "[vl]", "-map", "[mix]", "-t", "6.0000", "-r", "24.0000",
      "-c:v", "libx264", "-preset", "medium", "-crf", "23", "-pix_fmt", "yuv420p",
      "-c:a", "aac", "-b:a", "192k", "-movflags", "+faststart", "/prod/export/.x/film.mp4"};
  const auto args = Exporter::arguments(plan, "/prod", "/prod/export/.x/film.mp4", burn, -3.0, picture, sheets);
  ASSERT_EQ(args.size(), expected.size());
  for (size_t i = 0; i < args.size(); ++i) EXPECT_EQ(args[i], expected[i]) << "argument " << i;
}

TEST(ExporterArguments, Mp4AtItsPlainest) {
  ExportPlan plan;
  plan.video = "takes/t1/film.mp4";
  plan.duration = 3;
  plan.cut = {{"s1", std::nullopt, 0, 3, std::nullopt}};
  const auto args = Exporter::arguments(plan, "/p", "/p/o.mp4", std::nullopt, std::nullopt, {640, 360, 30}, std::nullopt);
  const std::vector<std::string> expected = {
      "-y", "-hide_banner", "-loglevel", "error", "-progress", "pipe:1",
      "-ss", "0.0000", "-t", "3.0000", "-i", "/p/takes/t1/film.mp4",
      "-f", "lavfi", "-t", "3.0000", "-i", "anullsrc=channel_layout=stereo:sample_rate=48000",
      "-filter_complex", "[1:a]anull[voice];[voice]anull[mix]",
      "-map", "0:v", "-map", "[mix]", "-t", "3.0000",
      "-c:v", "libx264", "-preset", "medium", "-crf", "20", "-pix_fmt", "yuv420p",
      "-c:a", "aac", "-b:a", "192k", "-movflags", "+faststart", "/p/o.mp4"};
  EXPECT_EQ(args, expected);

  // One segment that starts late is a cut: split into one, and a null to close it.
  plan.cut[0].from = 0.5;
  const auto chain = Exporter::pictureChain(plan, std::nullopt, {640, 360, 30}, 30, std::nullopt, -1, -1);
  EXPECT_EQ(chain.filters, (std::vector<std::string>{"[0:v]split=1[p0]",
                                                     "[p0]trim=start=0.5000:end=3.0000,setpts=PTS-STARTPTS[c0]",
                                                     "[c0]null[vc]"}));
  EXPECT_EQ(Exporter::takeSoundFilters(plan, 0).back(), "[sc]volume=0.00dB,apad[sys]");
  plan.cut.clear();
  EXPECT_EQ(Exporter::takeSoundFilters(plan, -6), (std::vector<std::string>{"[0:a]volume=-6.00dB,apad[sys]"}));
}

TEST(ExporterArguments, GifInTwoPassesWithoutSound) {
  ExportPlan plan = everything();
  plan.target = ExportTarget{ExportFormat::gif, std::nullopt, 60, std::nullopt, std::nullopt};
  const Exporter::Picture picture{1920, 1080, 30};
  const std::string chain =
      "[0:v]split=2[p0][p1];"
      "[p0]trim=start=0.0000:end=4.0000,setpts=PTS-STARTPTS[c0];"
      "[p1]trim=start=6.0000:end=10.0000,setpts=(PTS-STARTPTS)/2.0000[c1];"
      "[c0][c1]concat=n=2:v=1:a=0[vc];"
      "[vc]" + zoomText(1920, 1080, 30) + "[vz];"
      "[vz]subtitles='/prod/export/.x/captions.ass':fontsdir='/fonts'[vs];"
      "[vs]fps=15,scale=1280:720:flags=lanczos[gs]";
  const auto passes = Exporter::gifArguments(plan, "/prod", "/x/film.gif", "/x/palette.png", burn, picture);
  ASSERT_EQ(passes.size(), 2u);
  EXPECT_EQ(passes[0], (std::vector<std::string>{"-y", "-hide_banner", "-loglevel", "error",
                                                 "-ss", "0.5000", "-t", "10.0000", "-i", "/prod/takes/t1/film.mp4",
                                                 "-filter_complex", chain + ";[gs]palettegen=stats_mode=diff[p]",
                                                 "-map", "[p]", "-frames:v", "1", "/x/palette.png"}));
  EXPECT_EQ(passes[1],
            (std::vector<std::string>{
                "-y", "-hide_banner", "-loglevel", "error", "-progress", "pipe:1",
                "-ss", "0.5000", "-t", "10.0000", "-i", "/prod/takes/t1/film.mp4", "-i", "/x/palette.png",
                "-filter_complex",
                chain + ";[gs][1:v]paletteuse=dither=bayer:bayer_scale=5:diff_mode=rectangle[v]",
                "-map", "[v]", "-t", "6.0000", "-loop", "0", "/x/film.gif"}));
  for (const auto& pass : passes)
    for (const char* never : {"-c:a", "[mix]", "/prod/audio/l1.wav", "/prod/music/bed.wav"})
      EXPECT_EQ(std::ranges::count(pass, std::string(never)), 0) << never;
}

TEST(ExporterArguments, PathsAreQuotedForTheFilterGraph) {
  EXPECT_EQ(Exporter::filterQuoted("/a b/c.ass"), "/a b/c.ass");
  EXPECT_EQ(Exporter::filterQuoted("/x:y/it's,[1];50%.ass"), "/x\\:y/it\\'\\''s,[1];50%.ass");
  EXPECT_EQ(Exporter::filterQuoted("C:\\dir"), "C\\:\\\\dir");
}

TEST(ExporterArguments, ProgressLinesAndTheSearchForFFmpeg) {
  EXPECT_EQ(Exporter::progressOf("out_time_us=1500000", 3), 0.5);
  EXPECT_EQ(Exporter::progressOf("out_time_us=9000000", 3), 1);
  EXPECT_EQ(Exporter::progressOf("out_time_us=N/A", 3), std::nullopt);
  EXPECT_EQ(Exporter::progressOf("out_time_ms=1500000", 3), std::nullopt);
  EXPECT_EQ(Exporter::progressOf("frame=12", 3), std::nullopt);

  std::vector<std::filesystem::path> searched;
  FFmpegSearch search;
  search.beside = "/nowhere/bin";
  search.places = {"/nowhere/ffmpeg"};
  EXPECT_EQ(Exporter::findFFmpeg(search, "/also/nowhere::/usr/bin", &searched), "/usr/bin/ffmpeg");
  EXPECT_EQ(searched, (std::vector<std::filesystem::path>{"/nowhere/bin/ffmpeg", "/nowhere/ffmpeg",
                                                          "/also/nowhere/ffmpeg", "/usr/bin/ffmpeg"}));
  search.usePath = false;
  EXPECT_EQ(Exporter::findFFmpeg(search, "/usr/bin"), std::nullopt);

  // An ffmpeg beside the program wins over the system's.
  const auto installed = FFmpegSearch::besideThisProgram();
  EXPECT_EQ(installed.beside, std::filesystem::canonical("/proc/self/exe").parent_path());
  EXPECT_EQ(installed.places.back(), "/usr/bin/ffmpeg");
}
