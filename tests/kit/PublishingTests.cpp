#include <gtest/gtest.h>

#include <thread>

#include "TestProductions.hpp"
#include "kit/FetchPlan.hpp"
#include "kit/PublishRequest.hpp"
#include "kit/Revision.hpp"
#include "kit/OutputTail.hpp"
#include "kit/YouTubeDocuments.hpp"

using namespace tavorin;
using namespace std::chrono;

namespace {

PublishRequest titled(std::string title) {
  PublishRequest r;
  r.title = std::move(title);
  return r;
}

std::string utf8Repeat(const std::string& piece, size_t n) {
  std::string s;
  for (size_t i = 0; i < n; ++i) s += piece;
  return s;
}

template <class F>
std::string thrown(F f) {
  try {
    f();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "(nothing thrown)";
}

}  // namespace

TEST(PublishRequest, LimitsCountWhatAReaderSeesNotBytes) {
  EXPECT_EQ(titled(std::string(100, 'a')).refusal(), std::nullopt);
  EXPECT_EQ(titled(std::string(101, 'a')).refusal(), "the title is 101 characters; YouTube takes 100");
  // "é" as e + combining acute, and a family emoji joined with ZWJ, are one character each.
  EXPECT_EQ(titled(utf8Repeat("e\xcc\x81", 100)).refusal(), std::nullopt);
  EXPECT_EQ(perceivedLength("\xf0\x9f\x91\xa8\xe2\x80\x8d\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7"), 1u);
  EXPECT_EQ(titled(utf8Repeat("\xc3\xa9", 101)).refusal(), "the title is 101 characters; YouTube takes 100");

  PublishRequest r = titled("ok");
  r.description = std::string(5001, 'd');
  EXPECT_EQ(r.refusal(), "the description is 5001 characters; YouTube takes 5000");
  r.description.clear();
  // 50 tags of 9 characters and 49 commas come to 499; one more character tips it over.
  r.tags.assign(50, std::string(9, 't'));
  r.tags.back() += "x";
  EXPECT_EQ(r.refusal(), std::nullopt);  // exactly 500 with the commas
  r.tags.back() += "x";
  EXPECT_EQ(r.refusal(), "the tags come to 501 characters; YouTube takes 500");
}

TEST(PublishRequest, TheFirstRefusalWins) {
  EXPECT_EQ(titled(" \n\t").refusal(), "a title is needed");
  EXPECT_EQ(titled("a <b> c").refusal(), "YouTube rejects < and > in a title");
  EXPECT_EQ(titled(std::string(101, '<')).refusal(), "the title is 101 characters; YouTube takes 100");
  EXPECT_EQ(parsePrivacy(" Unlisted "), PublishRequest::Privacy::unlisted);
  EXPECT_EQ(parsePrivacy("secret"), std::nullopt);
  EXPECT_EQ(raw(PublishRequest::Privacy::publicVideo), "public");
  EXPECT_EQ(sentence(PublishRequest::Privacy::unlisted), "Anybody with the link can watch it.");
}

TEST(Publish, DescriptionIsTheProductionsOwnThenWhereItCameFrom) {
  Recording rec = test::production({{"l1", 0}});
  rec.title = "Halden";
  rec.description = "  A tour.\n";
  rec.origin = Origin{"make a tour", "claude-code", std::nullopt, std::nullopt};
  const PublishRequest r = Publish::request(rec, "/x/export/a.mp4", "t3");
  EXPECT_EQ(r.title, "Halden");
  EXPECT_EQ(r.description, "A tour.\n\nMade with Tavorin.\nDrafted by claude-code.\n1 narrated line\nTake t3");
  EXPECT_EQ(r.privacy, PublishRequest::Privacy::privateVideo);
  EXPECT_TRUE(r.tags.empty());

  Recording plain = test::production({{"l1", 0}, {"l2", 3}});
  EXPECT_EQ(Publish::request(plain, "a.mp4", std::nullopt).description, "Made with Tavorin.\n2 narrated lines");
}

TEST(YouTubeDocuments, OnlyADesktopClientIsTaken) {
  const auto client =
      YouTubeClient::decode(R"({"installed":{"client_id":"cid.apps","client_secret":"s3","redirect_uris":["x"]}})");
  EXPECT_EQ(client.clientId, "cid.apps");
  EXPECT_EQ(client.clientSecret, "s3");
  EXPECT_EQ(thrown([] { YouTubeClient::decode(R"({"web":{"client_id":"a","client_secret":"b"}})"); }),
            "that client file is not a Desktop app client");
  EXPECT_EQ(thrown([] { YouTubeClient::decode(R"({"installed":{"client_id":"a"}})"); }),
            "that client file has no client_secret");
  EXPECT_EQ(thrown([] { YouTubeClient::decode("not json"); }), "that client file is not JSON");
}

TEST(YouTubeDocuments, TokenRoundTripsAndIsUsedOnlyWithMoreThanAMinuteLeft) {
  const system_clock::time_point t0 = sys_days{2026y / 11 / 23} + 18h;
  YouTubeToken token{"acc", "ref", t0 + 61s};
  const YouTubeToken back = YouTubeToken::decode(token.encoded());
  EXPECT_EQ(back.accessToken, "acc");
  EXPECT_EQ(back.refreshToken, "ref");
  EXPECT_EQ(back.expiresAt, t0 + 61s);
  EXPECT_TRUE(token.usableAt(t0));
  token.expiresAt = t0 + 60s;
  EXPECT_FALSE(token.usableAt(t0));
  EXPECT_THROW(YouTubeToken::decode(R"({"accessToken":"a"})"), std::runtime_error);
}

TEST(YouTubeDocuments, AnswersFromGoogleAreReadDefensively) {
  const auto code = YouTubeAnswers::grant(R"({"access_token":"a1","refresh_token":"r1","expires_in":3599})");
  EXPECT_EQ(code.refreshToken, "r1");
  EXPECT_EQ(code.expiresIn, 3599);
  const auto refreshed = YouTubeAnswers::grant(R"({"access_token":"a2","expires_in":-5})");
  EXPECT_EQ(refreshed.refreshToken, std::nullopt);
  EXPECT_EQ(refreshed.expiresIn, 0);
  EXPECT_THROW(YouTubeAnswers::grant(R"({"expires_in":1})"), std::runtime_error);

  EXPECT_EQ(YouTubeAnswers::videoId(R"({"kind":"youtube#video","id":"abc123"})"), "abc123");
  EXPECT_EQ(YouTubeAnswers::videoId(R"({"id":7})"), std::nullopt);
  EXPECT_EQ(YouTubeAnswers::videoId("<html>"), std::nullopt);
  EXPECT_EQ(YouTubeAnswers::summary(R"({"error":{"code":500,"message":"Backend Error"}})"), "Backend Error");
  EXPECT_EQ(YouTubeAnswers::summary(R"({"error":"invalid_grant","error_description":"Bad Request"})"), "Bad Request");
  EXPECT_EQ(YouTubeAnswers::summary("  oops\nmore"), "oops");

  const auto channel = YouTubeChannel::fromChannelsAnswer(
      R"({"items":[{"id":"UC1","snippet":{"title":"Halden Films","customUrl":"@halden"}}]})");
  EXPECT_EQ(channel.title, "Halden Films");
  EXPECT_EQ(channel.handle, "@halden");
  EXPECT_EQ(YouTubeChannel::decode(channel.encoded()).handle, "@halden");
  EXPECT_EQ(thrown([] { YouTubeChannel::fromChannelsAnswer(R"({"items":[]})"); }),
            "that Google account holds no YouTube channel");
}

TEST(Revision, PromptCarriesTheProductionAndTheInstructionVerbatim) {
  Recording rec = test::production({{"l1", 0}});
  const std::string prompt = Revision::prompt(rec, "say `hi` $(rm -rf ~)");
  EXPECT_EQ(prompt.rfind("You are revising a Tavorin production. Here is the current version, as JSON:\n\n", 0), 0u);
  EXPECT_NE(prompt.find(rec.encoded() + "\n\nThe change asked for is:\n\nsay `hi` $(rm -rf ~)\n\nReply with"),
            std::string::npos);
  EXPECT_EQ(Revision::arguments(prompt), (std::vector<std::string>{"-p", prompt, "--output-format", "text"}));
}

TEST(Revision, OnlyARecordingOfTheSameIdIsTaken) {
  Recording rec = test::production({{"l1", 0}});
  rec.title = "Revised";
  const Recording landed = Revision::parse("Sure! ```json\n" + rec.encoded() + "\n``` Enjoy.", "p");
  EXPECT_EQ(landed.title, "Revised");
  EXPECT_EQ(thrown([&] { Revision::parse(rec.encoded(), "q"); }),
            "the reply is for 'p', not 'q' — nothing was changed");
  EXPECT_EQ(thrown([] { Revision::parse("I could not do that.", "p"); }),
            "the reply wasn't JSON, so nothing was changed");
  EXPECT_EQ(thrown([] { Revision::parse("} backwards {", "p"); }), "the reply wasn't JSON, so nothing was changed");
  EXPECT_EQ(thrown([] { Revision::parse("{\"id\": \"p\",}", "p"); }), "the reply wasn't JSON, so nothing was changed");
  EXPECT_EQ(thrown([] { Revision::parse(R"({"id":"p","timeline":"no"})", "p"); }),
            "the reply was JSON but not a recording, so nothing was changed");
}

TEST(OutputTail, KeepsTheEndOnceItGrowsPast8000) {
  OutputTail tail;
  tail.append(std::string(8000, 'a'));
  EXPECT_EQ(tail.text().size(), 8000u);
  tail.append("b");
  EXPECT_EQ(tail.text(), std::string(3999, 'a') + "b");

  OutputTail shared;
  std::thread other([&] {
    for (int i = 0; i < 2000; ++i) shared.append("xyz\n");
  });
  for (int i = 0; i < 2000; ++i) shared.append("abc\n");
  other.join();
  EXPECT_LE(shared.text().size(), 8000u);

  EXPECT_EQ(lastMeaningfulLine("ERROR: Unsupported URL: x\n  ---  \n...\n"), "ERROR: Unsupported URL: x");
  EXPECT_EQ(lastMeaningfulLine("--\n\n!!"), "");
}

TEST(FetchPlan, ArgumentsTrimWhenAskedAndEndWithTheURLAfterTheOptions) {
  const system_clock::time_point t = sys_days{2026y / 11 / 23} + 18h + 5min + 9s;
  const auto p = FetchPlan::plan("https://example.com/v?x=1", "/p/music", t, 90.0, std::nullopt);
  EXPECT_EQ(p.output, "/p/music/20261123-180509.mp3");
  EXPECT_EQ(p.arguments,
            (std::vector<std::string>{"--extract-audio", "--audio-format", "mp3", "--audio-quality", "0",
                                      "--no-playlist", "--newline", "-o", "/p/music/20261123-180509.%(ext)s",
                                      "--download-sections", "*0:01:30-", "--force-keyframes-at-cuts", "--",
                                      "https://example.com/v?x=1"}));
  const auto ends = FetchPlan::plan("http://h/a", "/m", t, std::nullopt, 3725.4);
  EXPECT_EQ(ends.arguments[10], "*0:00:00-1:02:05");
  EXPECT_EQ(FetchPlan::plan("http://h/a", "/m", t, std::nullopt, std::nullopt).arguments.size(), 11u);

  EXPECT_EQ(thrown([&] { FetchPlan::plan("file:///etc/passwd", "/m", t, {}, {}); }),
            "'file:///etc/passwd' doesn't look like a URL");
  EXPECT_EQ(thrown([&] { FetchPlan::plan("--exec=rm", "/m", t, {}, {}); }), "'--exec=rm' doesn't look like a URL");
  EXPECT_EQ(FetchPlan::clock(-4), "0:00:00");
  EXPECT_EQ(FetchPlan::clock(59.5), "0:01:00");
}

TEST(FetchPlan, ProgressIsReadFromDownloadLines) {
  EXPECT_DOUBLE_EQ(*FetchPlan::progress("[download]  42.5% of ~  3.20MiB at  1.00MiB/s ETA 00:02"), 0.425);
  EXPECT_DOUBLE_EQ(*FetchPlan::progress("[download] 100% of 3.20MiB"), 1.0);
  EXPECT_EQ(FetchPlan::progress("[ExtractAudio] Destination: x.mp3"), std::nullopt);
  EXPECT_EQ(FetchPlan::progress("% alone"), std::nullopt);
  EXPECT_EQ(FetchPlan::progress("ratio .%"), std::nullopt);
}
