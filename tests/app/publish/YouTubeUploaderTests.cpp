#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "FakeGoogle.hpp"
#include "TestSupport.hpp"
#include "app/publish/YouTubeUploader.hpp"

using namespace tavorin;
namespace fs = std::filesystem;
using namespace std::chrono;

namespace {

// A real film, made here: a few seconds of test picture at a bitrate that spans chunks.
const fs::path& film() {
  static test::TempDir dir;
  static const fs::path file = [] {
    const fs::path f = dir / "film.mp4";
    const std::string command = "ffmpeg -v error -y -f lavfi -i testsrc2=size=320x240:rate=25 -t 3 -c:v mpeg4 "
                                "-b:v 4M -pix_fmt yuv420p '" + f.string() + "'";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("ffmpeg could not make the film");
    return f;
  }();
  return file;
}

std::string bytesOf(const fs::path& f) {
  std::ifstream in(f, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class YouTubeUploaderTest : public ::testing::Test {
 protected:
  YouTubeUploaderTest() : store(tmp / "support") {
    test::writeFile(store.clientFile(), R"({"installed":{"client_id":")" + google.clientId +
                                            R"(","client_secret":")" + google.clientSecret + R"("}})");
    store.saveToken({google.access, google.refreshToken, system_clock::now() + hours(1)});
  }

  std::unique_ptr<YouTubeUploader> uploader(std::uint64_t chunk = 256 * 1024) {
    auto u = std::make_unique<YouTubeUploader>(YouTubeAuth(store, GoogleEndpoints::at(google.url())));
    u->useChunkSize(chunk);
    return u;
  }

  PublishRequest request() {
    PublishRequest r;
    r.title = "Halden — a tour";
    r.description = "Made with Tavorin.";
    r.tags = {"demo", "tour"};
    r.privacy = PublishRequest::Privacy::unlisted;
    r.file = film();
    return r;
  }

  std::string failure(YouTubeUploader& u, std::vector<double>* seen = nullptr) {
    try {
      u.upload(request(), [&](double p) {
        if (seen) seen->push_back(p);
      });
    } catch (const std::exception& e) {
      return e.what();
    }
    return "(uploaded)";
  }

  test::TempDir tmp;
  test::FakeGoogle google;
  YouTubeStore store;
};

}  // namespace

TEST_F(YouTubeUploaderTest, CleanUploadSendsEveryChunkInOrderAndNamesTheVideo) {
  auto u = uploader();
  std::vector<double> seen;
  const std::string id = u->upload(request(), [&](double p) { seen.push_back(p); });
  EXPECT_EQ(id, "vid-42");
  EXPECT_TRUE(google.violations.empty()) << google.violations.front();
  EXPECT_EQ(google.received, bytesOf(film()));
  const size_t chunks = (bytesOf(film()).size() + 256 * 1024 - 1) / (256 * 1024);
  ASSERT_GE(chunks, 3u);
  EXPECT_EQ(google.chunkPuts, int(chunks));
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_EQ(seen.back(), 1.0);
  EXPECT_EQ(google.metadata["snippet"]["title"], "Halden — a tour");
  EXPECT_EQ(google.metadata["snippet"]["tags"], nlohmann::json::array({"demo", "tour"}));
  EXPECT_EQ(google.metadata["status"]["privacyStatus"], "unlisted");
  EXPECT_EQ(google.metadata["status"]["selfDeclaredMadeForKids"], false);
  EXPECT_EQ(google.declared, long(bytesOf(film()).size()));
}

TEST_F(YouTubeUploaderTest, AFilmSmallerThanAChunkGoesInOnePutWithoutA308) {
  auto u = uploader(YouTubeUploader::chunkSize);
  EXPECT_EQ(u->upload(request(), nullptr), "vid-42");
  EXPECT_EQ(google.chunkPuts, 1);
  EXPECT_EQ(google.received, bytesOf(film()));
}

TEST_F(YouTubeUploaderTest, ADroppedConnectionEndsTheUploadAndTheNextAttemptStartsAfresh) {
  const int chunks = int((bytesOf(film()).size() + 256 * 1024 - 1) / (256 * 1024));
  google.faults.dropChunk = (chunks * 6 + 9) / 10;  // the chunk that crosses 60%
  auto u = uploader();
  std::vector<double> seen;
  EXPECT_EQ(failure(*u, &seen).rfind("the upload broke off: ", 0), 0u);
  EXPECT_EQ(google.chunkPuts, google.faults.dropChunk);  // nothing sent after the drop
  ASSERT_FALSE(seen.empty());
  EXPECT_LT(seen.back(), 0.6);
  EXPECT_TRUE(fs::exists(film()));  // the export stays where it was

  // Trying again opens a new session and sends the film from its first byte.
  google.faults.dropChunk = 0;
  EXPECT_EQ(u->upload(request(), nullptr), "vid-42");
  EXPECT_TRUE(google.violations.empty()) << google.violations.front();
  EXPECT_EQ(google.received, bytesOf(film()));
}

TEST_F(YouTubeUploaderTest, A401MidUploadEndsItAsYouTubeAnswered) {
  google.faults.unauthorisedChunk = 2;
  auto u = uploader();
  EXPECT_EQ(failure(*u), "YouTube answered 401: Invalid Credentials");
  EXPECT_EQ(google.refreshes, 0);  // renewed only before a session, never in the middle
  EXPECT_EQ(google.chunkPuts, 2);
}

TEST_F(YouTubeUploaderTest, ATokenThatCannotBeRenewedFailsAsYouTubeAnswered) {
  store.saveToken({google.access, google.refreshToken, system_clock::now() + seconds(30)});
  google.faults.rejectRefresh = true;
  auto u = uploader();
  EXPECT_EQ(failure(*u), "YouTube answered 400: Token has been expired or revoked.");
  EXPECT_EQ(google.chunkPuts, 0);
}

TEST_F(YouTubeUploaderTest, A500EndsTheUploadWithYouTubesWords) {
  google.faults.failChunk = 2;
  auto u = uploader();
  EXPECT_EQ(failure(*u), "YouTube answered 500: Backend Error");
  EXPECT_EQ(google.chunkPuts, 2);  // no retry after a refusal
}

TEST_F(YouTubeUploaderTest, CancelInTheMiddleStopsBeforeTheNextChunk) {
  auto u = uploader();
  int puts = 0;
  std::string said;
  try {
    u->upload(request(), [&](double p) {
      if (p > 0.3 && puts == 0) {
        puts = google.chunkPuts;
        u->cancel();
      }
    });
  } catch (const std::exception& e) {
    said = e.what();
  }
  EXPECT_EQ(said, "upload cancelled");
  EXPECT_GT(puts, 0);
  EXPECT_EQ(google.chunkPuts, puts);
  EXPECT_LT(google.received.size(), bytesOf(film()).size());
}

TEST_F(YouTubeUploaderTest, ATokenWithAMinuteOrLessIsRefreshedBeforeTheSession) {
  store.saveToken({google.access, google.refreshToken, system_clock::now() + seconds(61) + seconds(5)});
  YouTubeAuth auth(store, GoogleEndpoints::at(google.url()));
  EXPECT_EQ(auth.freshToken().accessToken, "ya29.first");
  EXPECT_EQ(google.refreshes, 0);
  store.saveToken({google.access, google.refreshToken, system_clock::now() + seconds(60)});
  EXPECT_EQ(auth.freshToken().accessToken, "ya29.renewed-1");
  EXPECT_EQ(google.refreshes, 1);
}

TEST_F(YouTubeUploaderTest, WithoutClientOrTokenNothingIsSent) {
  fs::remove(store.tokenFile());
  auto u = uploader();
  EXPECT_FALSE(u->isConfigured());
  EXPECT_EQ(failure(*u), "YouTube is not connected yet. Add the client file and press Connect.");
  fs::remove(store.clientFile());
  EXPECT_EQ(failure(*u), "YouTube is not connected yet. Add the client file and press Connect.");
  EXPECT_TRUE(google.requests().empty());
}

TEST_F(YouTubeUploaderTest, TheTokenFileIsKeptPrivate) {
  struct stat st {};
  ASSERT_EQ(::stat(store.tokenFile().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ::chmod(store.tokenFile().c_str(), 0644);
  ASSERT_TRUE(store.token());
  ASSERT_EQ(::stat(store.tokenFile().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(YouTubeUploaderTest, TheCodeIsTradedForATokenThatIsSaved) {
  fs::remove(store.tokenFile());
  YouTubeAuth auth(store, GoogleEndpoints::at(google.url()));
  const auto client = store.client();
  const std::string url = auth.authorisationURL(client, 4321, "st8");
  EXPECT_EQ(url, google.url() +
                     "/o/oauth2/v2/auth?client_id=cid.apps.googleusercontent.com&redirect_uri=http%3A%2F%2F127.0.0.1%"
                     "3A4321&response_type=code&scope=https%3A%2F%2Fwww.googleapis.com%2Fauth%2Fyoutube.upload%"
                     "20https%3A%2F%2Fwww.googleapis.com%2Fauth%2Fyoutube.readonly&access_type=offline&prompt="
                     "consent&state=st8");
  EXPECT_EQ(auth.exchange(client, google.code, 4321).refreshToken, "1//refresh");
  EXPECT_EQ(store.token()->accessToken, "ya29.first");
  EXPECT_EQ(auth.channel(*store.token()).title, "Halden Films");

  google.refreshToken.clear();
  try {
    auth.exchange(client, google.code, 4321);
    ADD_FAILURE() << "a grant without a refresh token was taken";
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(),
                 "Google returned no refresh token; disconnect the app in your account settings and connect again");
  }
}
