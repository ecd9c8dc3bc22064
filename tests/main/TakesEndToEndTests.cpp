// A film brought into a running studio and cut, zoomed and measured only through tavorinctl.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>

#include "Processes.hpp"
#include "TestSupport.hpp"
#include "main/StudioFixture.hpp"
#include "operator/JSONValue.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class TakesEndToEnd : public test::StudioFixture {
 protected:
  void SetUp() override {
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "ffmpeg is not installed (Debian package ffmpeg)";
    film = dir / "screen demo.mp4";
    const std::string make =
        "ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i testsrc=size=320x240:rate=30:duration=3 "
        "-f lavfi -i sine=frequency=440:duration=3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac "
        "-shortest '" + film.string() + "'";
    ASSERT_EQ(std::system(make.c_str()), 0) << make;
    startStudio();
  }

  fs::path film;
};

double num(const JSONValue& v, const char* key) { return v[key] ? v[key]->doubleValue().value_or(-1) : -1; }
const JSONValue::Array& items(const JSONValue& v, const char* key) {
  static const JSONValue::Array none;
  return v[key] && v[key]->arrayValue() ? *v[key]->arrayValue() : none;
}

}  // namespace

TEST_F(TakesEndToEnd, AnImportedFilmIsCutZoomedAndDrawn) {
  ok({"project.create", "name=Films"});
  ok({"recording.new", "title=Demo"});

  const JSONValue imported = ok({"import", "path=" + film.string()});
  const std::string take = str(imported, "id");
  EXPECT_EQ(str(imported, "kind"), "video");
  EXPECT_EQ(str(imported, "source"), "imported");

  const JSONValue takes = ok({"take.list"});
  ASSERT_EQ(items(takes, "takes").size(), 1u);
  EXPECT_EQ(str(items(takes, "takes")[0], "id"), take);
  EXPECT_NEAR(num(items(takes, "takes")[0], "length"), 3, 0.05);
  EXPECT_EQ(str(takes, "monitor"), take);

  EXPECT_EQ(str(ok({"segment.split", "at=1.5"}), "id"), "s2");
  const JSONValue fast = ok({"segment.rate", "id=s2", "rate=3"});
  ASSERT_EQ(items(fast, "segments").size(), 2u);
  EXPECT_NEAR(num(items(fast, "segments")[1], "length"), 0.5, 0.01);
  EXPECT_NEAR(num(fast, "length"), 2, 0.01);

  const JSONValue zoom = ok({"zoom.add", "at=0.5", "length=1", "scale=2.5", "x=0.3", "y=0.6"});
  EXPECT_EQ(str(zoom, "id"), "z1");

  ok({"timeline.zoom", "px=100"});
  const JSONValue drawn = ok({"timeline.items"});
  bool sawSegment = false, sawZoom = false;
  for (const auto& item : items(drawn, "items")) {
    if (str(item, "id") == "s2") {
      sawSegment = true;
      EXPECT_EQ(str(item, "lane"), "screen");
      EXPECT_NEAR(num(item, "x"), 150, 1e-6);
      EXPECT_NEAR(num(item, "width"), 48, 1e-6);  // half a second at 100 px, less the seam
      EXPECT_NEAR(num(item, "rate"), 3, 1e-9);
    }
    if (str(item, "id") == "z1") {
      sawZoom = true;
      EXPECT_EQ(str(item, "lane"), "zooms");
      EXPECT_NEAR(num(item, "x"), 50, 1e-6);
    }
  }
  EXPECT_TRUE(sawSegment && sawZoom) << drawn.encode();
  const std::string filter = str(ok({"zoom.list"}), "filter");
  EXPECT_NE(filter.find(":s=320x240:fps=30"), std::string::npos) << filter;
}
