#include "platform/DevToolsSocket.hpp"

#include <libwebsockets.h>

#include <cstring>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace tavorin {

namespace {
int callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, size_t len);
const lws_protocols protocols[] = {{"tavorin-devtools", callback, 0, 1 << 16, 0, nullptr, 0}, {}};
}  // namespace

struct DevToolsSocket::Impl {
  lws_context* context = nullptr;
  lws* wsi = nullptr;
  int port = 0;
  // The HTTP answer to /json/version, then the socket's traffic.
  std::string body;
  bool httpDone = false;
  bool established = false;
  bool closed = false;
  std::optional<std::string> failure;
  std::string partial;
  std::deque<std::string> inbox;
  std::deque<std::string> outbox;
  lws_sorted_usec_list_t wake{};

  ~Impl() {
    if (context) lws_context_destroy(context);
  }

  // Services the connection until `done` holds or `until` passes. A timer wakes the
  // loop, which otherwise sleeps until traffic comes.
  template <class Done>
  bool serviceUntil(Done done, Clock::time_point until) {
    while (!done()) {
      const auto left = std::chrono::duration_cast<std::chrono::microseconds>(until - Clock::now()).count();
      if (left <= 0) return false;
      lws_sul_schedule(context, 0, &wake, [](lws_sorted_usec_list_t*) {}, std::min<long long>(left, 50000));
      if (lws_service(context, 0) < 0) return false;
    }
    return true;
  }

  lws* connect(const std::string& path, const char* method) {
    lws_client_connect_info info{};
    info.context = context;
    info.address = "127.0.0.1";
    info.port = port;
    info.path = path.c_str();
    info.host = "127.0.0.1";
    // No Origin and no subprotocol: Chromium refuses a socket whose origin it was not
    // told to allow, and names no subprotocol back.
    info.method = method;
    info.local_protocol_name = protocols[0].name;
    info.ietf_version_or_minus_one = -1;
    info.userdata = this;
    info.pwsi = &wsi;
    return lws_client_connect_via_info(&info);
  }
};

namespace {

int callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, size_t len) {
  if (!user) return 0;  // the context's own, before any connection
  auto& s = *static_cast<DevToolsSocket::Impl*>(user);
  switch (reason) {
    case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
      s.failure = in ? std::string(static_cast<const char*>(in), len) : std::string("the connection failed");
      s.closed = true;
      s.wsi = nullptr;
      break;
    case LWS_CALLBACK_RECEIVE_CLIENT_HTTP: {
      char buffer[4096 + LWS_PRE];
      char* at = buffer + LWS_PRE;
      int size = sizeof buffer - LWS_PRE;
      if (lws_http_client_read(wsi, &at, &size) < 0) return -1;
      break;
    }
    case LWS_CALLBACK_RECEIVE_CLIENT_HTTP_READ:
      s.body.append(static_cast<const char*>(in), len);
      break;
    case LWS_CALLBACK_COMPLETED_CLIENT_HTTP:
      s.httpDone = true;
      break;
    case LWS_CALLBACK_CLOSED_CLIENT_HTTP:
      s.httpDone = true;
      s.wsi = nullptr;
      break;
    case LWS_CALLBACK_CLIENT_ESTABLISHED:
      s.established = true;
      if (!s.outbox.empty()) lws_callback_on_writable(wsi);
      break;
    case LWS_CALLBACK_CLIENT_RECEIVE:
      s.partial.append(static_cast<const char*>(in), len);
      if (lws_is_final_fragment(wsi) && lws_remaining_packet_payload(wsi) == 0) {
        s.inbox.push_back(std::move(s.partial));
        s.partial.clear();
      }
      break;
    case LWS_CALLBACK_CLIENT_WRITEABLE: {
      if (s.outbox.empty()) break;
      std::string frame(LWS_PRE, '\0');
      frame += s.outbox.front();
      s.outbox.pop_front();
      const auto size = frame.size() - LWS_PRE;
      if (lws_write(wsi, reinterpret_cast<unsigned char*>(frame.data()) + LWS_PRE, size, LWS_WRITE_TEXT) <
          static_cast<int>(size))
        return -1;
      if (!s.outbox.empty()) lws_callback_on_writable(wsi);
      break;
    }
    case LWS_CALLBACK_CLIENT_CLOSED:
      s.closed = true;
      s.wsi = nullptr;
      break;
    default:
      break;
  }
  return 0;
}

std::string unreachable(int port, const std::string& why) {
  return "Tavorin can't reach the browser on port " + std::to_string(port) +
         " (start Chromium with --remote-debugging-port=" + std::to_string(port) + "): " + why;
}

}  // namespace

DevToolsSocket::DevToolsSocket(int port, std::chrono::milliseconds timeout) : impl_(std::make_unique<Impl>()) {
  lws_set_log_level(0, nullptr);
  impl_->port = port;
  lws_context_creation_info info{};
  info.port = CONTEXT_PORT_NO_LISTEN;
  info.protocols = protocols;
  impl_->context = lws_create_context(&info);
  if (!impl_->context) throw std::runtime_error(unreachable(port, "no connection could be set up"));
  const auto until = Clock::now() + timeout;

  Impl& s = *impl_;
  if (!s.connect("/json/version", "GET")) throw std::runtime_error(unreachable(port, "nothing answers there"));
  if (!s.serviceUntil([&] { return s.httpDone || s.failure.has_value(); }, until))
    throw std::runtime_error(unreachable(port, "it did not answer in time"));
  if (s.failure) throw std::runtime_error(unreachable(port, *s.failure));
  const auto version = nlohmann::json::parse(s.body, nullptr, false);
  const std::string url = version.is_object() ? version.value("webSocketDebuggerUrl", std::string()) : std::string();
  // ws://127.0.0.1:PORT/devtools/browser/ID: the path is all this connection needs.
  const auto slash = url.find('/', url.find("//") == std::string::npos ? 0 : url.find("//") + 2);
  if (url.rfind("ws://", 0) != 0 || slash == std::string::npos)
    throw std::runtime_error(unreachable(port, "what answers there is not a Chromium DevTools endpoint"));

  s.failure.reset();
  s.closed = false;
  s.wsi = nullptr;
  if (!s.connect(url.substr(slash), nullptr)) throw std::runtime_error(unreachable(port, "the socket did not open"));
  if (!s.serviceUntil([&] { return s.established || s.closed; }, until) || !s.established)
    throw std::runtime_error(unreachable(port, s.failure.value_or("the socket did not open in time")));
}

DevToolsSocket::~DevToolsSocket() = default;

bool DevToolsSocket::isOpen() const { return impl_->established && !impl_->closed; }

void DevToolsSocket::send(const std::string& text) {
  if (!isOpen()) throw std::runtime_error("the browser closed its connection");
  impl_->outbox.push_back(text);
  lws_callback_on_writable(impl_->wsi);
  // Written before returning, so an answer can never overtake its question.
  impl_->serviceUntil([&] { return impl_->outbox.empty() || impl_->closed; }, Clock::now() + std::chrono::seconds(5));
  if (!impl_->outbox.empty()) throw std::runtime_error("the browser stopped taking messages");
}

std::vector<std::string> DevToolsSocket::receive(Clock::time_point until) {
  Impl& s = *impl_;
  s.serviceUntil([&] { return !s.inbox.empty() || s.closed; }, until);
  std::vector<std::string> out(std::make_move_iterator(s.inbox.begin()), std::make_move_iterator(s.inbox.end()));
  s.inbox.clear();
  if (out.empty() && s.closed) throw std::runtime_error("the browser went away");
  return out;
}

}  // namespace tavorin
