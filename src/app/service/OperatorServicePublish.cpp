// The YouTube account and the upload: the sign-in through a loopback redirect, the
// token moved aside, the default privacy, and the film sent off the main actor with its
// progress posted back.
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>
#include <asio/this_coro.hpp>

#include <random>
#include <utility>

#include "app/model/AppStore.hpp"
#include "app/publish/YouTubeAuth.hpp"
#include "app/service/LoopbackListener.hpp"
#include "app/service/Offloaded.hpp"
#include "app/service/OperatorArgs.hpp"
#include "app/service/OperatorService.hpp"
#include "app/service/Outside.hpp"
#include "base/Hex.hpp"
#include "base/Text.hpp"

namespace tavorin {

namespace {

// What comes back with the code proves the redirect answers the studio's own request.
std::string freshState() {
  std::random_device device;
  unsigned char bytes[16];
  for (auto& b : bytes) b = static_cast<unsigned char>(device() & 0xff);
  return hexDigits(bytes, sizeof bytes);
}

std::string elapsed(std::chrono::steady_clock::duration d) {
  const auto s = std::chrono::duration_cast<std::chrono::seconds>(d).count();
  if (s < 60) return std::to_string(s) + " s";
  return std::to_string(s / 60) + " min " + std::to_string(s % 60) + " s";
}

}  // namespace

void OperatorService::registerPublish() {
  // The default privacy of new uploads is the user's, kept between launches.
  try {
    if (const auto kept = model().session().read().uploadPrivacy)
      if (const auto privacy = parsePrivacy(*kept)) outside_->account.setPrivacy(*privacy);
  } catch (const std::exception&) {
  }
  // An export armed for YouTube hands its film on as soon as it is out.
  model().onExportDelivered = [this](const std::filesystem::path& film) {
    AppModel& m = model();
    const auto take = m.exportTake();
    PublishRequest request = Publish::request(m.recording(), film, take ? std::optional(take->id) : std::nullopt);
    request.privacy = outside_->account.privacy();
    try {
      if (const auto refusal = request.refusal()) throw std::runtime_error(refusal.value());
      if (outside_->publishBusy()) throw std::runtime_error("an upload is already running");
      startPublish(request);
    } catch (const std::exception& e) {
      m.note("upload refused: " + std::string(e.what()));
    }
  };
  // A finished or refused upload stands until the next production or export; one on
  // its way goes on, and an upload still waiting for a sign-in is dropped.
  model().onPublishForgotten = [this] {
    Outside& o = *outside_;
    if (o.publishPhase == Outside::PublishPhase::uploading) return;
    o.heldPublish.reset();
    o.publishPhase = Outside::PublishPhase::idle;
    o.publishProgress = 0;
    o.videoId.reset();
    o.publishFailure.reset();
  };
  onBranch(&OperatorService::publishVerbs,
           {"publish.youtube", "youtube", "youtube.disconnect", "youtube.privacy", "publish.status"});
  on("youtube.connect", [this](const OperatorCommand&, const OperatorArgs& a) { return youtubeConnect(a); });
}

JSONValue OperatorService::youtubeReport() const {
  const YouTubeAccount& account = outside_->account;
  const auto& channel = account.channel();
  return JSONValue::object(
      {{"state", name(account.state())},
       {"connected", account.state() == YouTubeAccount::State::connected},
       {"client", account.store().hasClient()},
       {"token", account.store().hasToken()},
       {"clientFile", account.store().clientFile().string()},
       {"channel", channel ? JSONValue::object({{"id", channel->id},
                                                {"title", channel->title},
                                                {"handle", Reports::text(channel->handle)}})
                           : JSONValue()},
       {"channelRefusal", Reports::text(account.channelRefusal())},
       {"failure", Reports::text(account.failure())},
       {"scopes", JSONValue::array({"https://www.googleapis.com/auth/youtube.upload",
                                    "https://www.googleapis.com/auth/youtube.readonly"})},
       {"privacy", raw(account.privacy())},
       {"status", account.status()},
       {"button", account.button()}});
}

JSONValue OperatorService::publishReport() const {
  const Outside& o = *outside_;
  using P = Outside::PublishPhase;
  const std::optional<std::string> url = o.videoId ? std::optional(Publish::watchURL(*o.videoId)) : std::nullopt;
  std::string label = "Upload to YouTube";
  std::string note;
  bool takesClicks = true;
  switch (o.publishPhase) {
    case P::idle: note = o.account.status(); break;
    case P::needsCredentials:
      label = "Connect YouTube";
      note = o.account.status();
      break;
    case P::connecting:
      label = "Connecting";
      note = "Waiting for the browser.";
      takesClicks = false;
      break;
    case P::uploading:
      label = "Uploading " + std::to_string(int(o.publishProgress * 100)) + "%";
      note = "Sending " + o.publishTitle.value_or("the film") + ".";
      takesClicks = false;
      break;
    case P::done:
      label = "Open on YouTube";
      note = "It is up. The link is in the Export sheet.";
      break;
    case P::failed:
      label = "Try again";
      note = o.publishFailure.value_or("");
      break;
  }
  return JSONValue::object({{"state", name(o.publishPhase)},
                            {"progress", o.publishProgress},
                            {"videoId", Reports::text(o.videoId)},
                            {"url", Reports::text(url)},
                            {"failure", Reports::text(o.publishFailure)},
                            {"title", Reports::text(o.publishTitle)},
                            {"file", Reports::text(o.publishFile)},
                            {"privacy", raw(o.account.privacy())},
                            {"button", JSONValue::object({{"state", name(o.publishPhase)},
                                                          {"label", label},
                                                          {"note", note},
                                                          {"takesClicks", takesClicks},
                                                          {"url", Reports::text(url)}})}});
}

OperatorService::Answer OperatorService::publishVerbs(const OperatorCommand& c, const OperatorArgs& a) {
  const std::string& v = c.verb;
  Outside& o = *outside_;
  if (v == "youtube") {
    // The files may have changed under the studio (a client file dropped in); a sign-in in
    // flight or one that failed keeps its own state until the next connect.
    if (o.account.state() != YouTubeAccount::State::connecting && o.account.state() != YouTubeAccount::State::failed)
      o.account.reread();
    return OperatorResult::success(youtubeReport());
  }
  if (v == "publish.status") return OperatorResult::success(publishReport());
  if (v == "youtube.privacy") {
    const auto word = a.text("privacy");
    if (!word) return OperatorResult::failure("youtube.privacy needs privacy=private|unlisted|public");
    const auto privacy = parsePrivacy(*word);
    if (!privacy) return OperatorResult::failure("privacy is private, unlisted or public");
    o.account.setPrivacy(*privacy);
    model().sessionWriter().write(model().session(), [word = raw(*privacy)](const SessionStore& s) {
      s.rememberUploadPrivacy(word);
    });
    model().note("new uploads are " + raw(*privacy));
    return OperatorResult::success(youtubeReport());
  }
  if (v == "youtube.disconnect") {
    const std::string moved = o.account.disconnect(model().actor().wallNow());
    model().note("YouTube token moved aside as " + moved);
    JSONValue report = youtubeReport();
    report.set("moved", (o.account.store().tokenFile().parent_path() / moved).string());
    return OperatorResult::success(report);
  }
  if (v != "publish.youtube") return std::nullopt;

  AppModel& m = model();
  if (!m.isOpen()) throw AppModel::Failure::cannotPublish("no production is open");
  if (o.publishBusy()) throw AppModel::Failure::cannotPublish("an upload is already running");
  std::filesystem::path file;
  if (const auto given = a.path("file")) {
    file = *given;
  } else {
    const auto films = m.exportedFilms();
    const auto mp4 = std::find_if(films.begin(), films.end(), [](const auto& f) { return f.path.extension() == ".mp4"; });
    if (mp4 == films.end())
      throw AppModel::Failure::cannotPublish("no export in " + m.baseDir()->string() + "/export yet, so there is nothing of " +
                                             m.recording().title + " to send. Run export first, or name a file with file=.");
    file = mp4->path;
  }
  const auto take = m.exportTake();
  PublishRequest request = Publish::request(m.recording(), file, take ? std::optional(take->id) : std::nullopt);
  request.privacy = o.account.privacy();
  if (const auto title = a.text("title")) request.title = *title;
  if (const auto description = a.text("description")) request.description = *description;
  if (const auto tags = a.text("tags")) {
    request.tags.clear();
    for (auto tag : Text::split(*tags, ','))
      if (!Text::trimSpace(tag).empty()) request.tags.emplace_back(Text::trimSpace(tag));
  }
  if (const auto privacy = a.text("privacy")) {
    const auto parsed = parsePrivacy(*privacy);
    if (!parsed) return OperatorResult::failure("privacy is private, unlisted or public");
    request.privacy = *parsed;
  }
  if (const auto refusal = request.refusal()) throw AppModel::Failure::cannotPublish(*refusal);
  std::error_code ec;
  if (!std::filesystem::is_regular_file(file, ec)) throw AppModel::Failure::cannotPublish("no file at " + file.string());

  return startPublish(request);
}

OperatorResult OperatorService::startPublish(const PublishRequest& request) {
  Outside& o = *outside_;
  AppModel& m = model();
  o.publishTitle = request.title;
  o.publishFile = request.file.string();
  o.videoId.reset();
  o.publishFailure.reset();
  if (!o.uploader->isConfigured()) {
    o.publishPhase = Outside::PublishPhase::needsCredentials;
    o.heldPublish = request;
    return OperatorResult::success(publishReport());
  }
  o.heldPublish.reset();
  o.publishPhase = Outside::PublishPhase::uploading;
  o.publishProgress = 0;
  o.publishStarted = m.actor().now();
  m.note("publishing " + request.title + " to " + o.uploader->name() + ", " + raw(request.privacy));

  MainActor& actor = m.actor();
  auto moved = o.lifetime.guard([this](double p) {
    if (outside_->publishPhase == Outside::PublishPhase::uploading)
      outside_->publishProgress = std::max(outside_->publishProgress, p);
  });
  auto id = std::make_shared<std::string>();
  Uploader* uploader = o.uploader.get();
  m.offloader().offload(
      [uploader, request, id, moved, &actor] {
        *id = uploader->upload(request, [moved, &actor](double p) { actor.post([moved, p]() mutable { moved(p); }); });
      },
      o.lifetime.guard([this, id, title = request.title](std::exception_ptr failed) {
        Outside& out = *outside_;
        if (!failed) {
          out.publishPhase = Outside::PublishPhase::done;
          out.publishProgress = 1;
          out.videoId = *id;
          model().note("published: " + *id);
          model().toasts().post(Toast::Kind::upload, "Upload finished sending " + title + " to YouTube in " +
                                                       elapsed(model().actor().now() - out.publishStarted));
          return;
        }
        try {
          std::rethrow_exception(failed);
        } catch (const std::exception& e) {
          out.publishPhase = Outside::PublishPhase::failed;
          out.publishFailure = e.what();
          model().note("publish failed: " + std::string(e.what()));
          model().toasts().post(Toast::Kind::failure, e.what());
        }
      }));
  return OperatorResult::success(publishReport());
}

asio::awaitable<OperatorResult> OperatorService::youtubeConnect(const OperatorArgs& a) {
  Outside& o = *outside_;
  const bool consent = a.flag("consent").value_or(false);
  if (!o.account.store().hasClient())
    co_return OperatorResult::failure("no client file at " + o.account.store().clientFile().string());
  if (o.account.state() == YouTubeAccount::State::connecting) co_return OperatorResult::success(youtubeReport());
  o.account.connecting();
  model().note("connecting to YouTube");
  // An upload waiting for credentials follows the sign-in it was waiting for.
  if (o.publishPhase == Outside::PublishPhase::needsCredentials && o.heldPublish)
    o.publishPhase = Outside::PublishPhase::connecting;
  auto executor = co_await asio::this_coro::executor;
  asio::co_spawn(executor, signIn(consent), asio::detached);
  co_return OperatorResult::success(youtubeReport());
}

// g++ 12 misreads the frame of this coroutine as freed by a mismatched delete (its
// coroutine frames are allocated and freed by asio's own pair); nothing is wrong here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
asio::awaitable<void> OperatorService::signIn(bool consent) {
  Outside& o = *outside_;
  auto executor = co_await asio::this_coro::executor;
  auto auth = std::make_shared<const YouTubeAuth>(o.account.store(), o.endpoints);
  auto token = std::make_shared<YouTubeToken>();
  std::optional<std::string> failure;
  try {
    const auto client = std::make_shared<const YouTubeClient>(auth->store().client());
    if (consent || !auth->store().hasToken()) {
      auto& context = static_cast<asio::io_context&>(asio::query(executor, asio::execution::context));
      o.listener = std::make_unique<LoopbackListener>(context, freshState());
      const unsigned short port = o.listener->port();
      o.openBrowser(auth->authorisationURL(*client, port, o.listener->state()));
      std::string answered = co_await o.listener->code(o.signInLimit);
      auto code = std::make_shared<const std::string>(std::move(answered));
      o.listener.reset();
      // Named, not a temporary in the co_await: g++ 12 destroys such a temporary twice.
      std::function<void()> exchange = [auth, client, code, port, token] {
        *token = auth->exchange(*client, *code, port);
      };
      co_await offloaded(model().offloader(), std::move(exchange));
    } else {
      std::function<void()> renew = [auth, token] { *token = auth->freshToken(); };
      co_await offloaded(model().offloader(), std::move(renew));
    }
  } catch (const std::exception& e) {
    failure = e.what();
  }
  if (failure) {
    o.listener.reset();
    o.account.failed(*failure);
    model().note("YouTube connect failed: " + *failure);
    if (o.publishPhase == Outside::PublishPhase::connecting) {
      o.heldPublish.reset();
      o.publishPhase = Outside::PublishPhase::failed;
      o.publishFailure = "YouTube connect failed: " + *failure;
    }
    co_return;
  }
  // A channel that will not read leaves the account connected; Reconnect can widen the grant.
  auto channel = std::make_shared<std::optional<YouTubeChannel>>();
  std::optional<std::string> refusal;
  try {
    std::function<void()> ask = [auth, token, channel] { *channel = auth->channel(*token); };
    co_await offloaded(model().offloader(), std::move(ask));
  } catch (const std::exception& e) {
    failure = e.what();
  }
  if (failure) {
    refusal = "Can't read the channel. Click Reconnect to grant access.";
    model().note("YouTube could not name the channel: " + *failure);
  }
  o.account.connected(*channel, refusal);
  if (*channel) model().note("connected to YouTube as " + (*channel)->title);
  if (o.publishPhase == Outside::PublishPhase::connecting && o.heldPublish) {
    const PublishRequest held = *std::exchange(o.heldPublish, std::nullopt);
    // The production may have closed or the film gone while the browser was open.
    std::error_code ec;
    if (!model().isOpen() || !std::filesystem::is_regular_file(held.file, ec)) {
      o.publishPhase = Outside::PublishPhase::failed;
      o.publishFailure = model().isOpen() ? "no file at " + held.file.string() : std::string("no production is open");
      model().note("publish failed: " + *o.publishFailure);
    } else {
      startPublish(held);
    }
  }
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

}  // namespace tavorin
