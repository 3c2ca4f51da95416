#include "tools/tarsil/page/PageServer.hpp"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "tarsil/runtime/DispatchQueue.hpp"
#include "tools/tarsil/CommandFailure.hpp"
#include "tools/tarsil/page/pageText.hpp"

namespace tarsil::cli {
namespace {

/// A browser that takes nothing for so long is let go, seconds; one that is there comes back by itself.
constexpr unsigned patience = 10;
constexpr unsigned mostConnections = 64;
/// Of the stream, in one piece.
constexpr std::size_t pieceSize = 16UL * 1024;
/// How long the end of the session waits for browsers that have kept up so far.
constexpr auto farewell = std::chrono::seconds(1);
/// Who had one of the last moments has kept up.
constexpr std::uint64_t lastMoments = 4;

/// Nothing of the page is fetched from elsewhere, framed by others, kept, or told to anybody.
constexpr std::array headers{
    std::pair{
        "Content-Security-Policy",
        "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; connect-src 'self'; "
        "img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    std::pair{"X-Content-Type-Options", "nosniff"},
    std::pair{"Referrer-Policy", "no-referrer"},
    std::pair{"Cache-Control", "no-store"},
};

struct ResponseEnd {
  void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseEnd>;

MHD_Result send(MHD_Connection* connection, unsigned status, const char* type, const Response& response) {
  if (!response) return MHD_NO;
  MHD_add_response_header(response.get(), "Content-Type", type);
  for (const auto& [name, value] : headers) MHD_add_response_header(response.get(), name, value);
  return MHD_queue_response(connection, status, response.get());
}

/// The text lives as long as the program.
MHD_Result send(MHD_Connection* connection, unsigned status, const char* type, std::string_view text) {
  return send(connection, status, type,
              Response(MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()),
                                                       MHD_RESPMEM_PERSISTENT)));
}

std::string_view valueOf(MHD_Connection* connection, MHD_ValueKind kind, const char* name) {
  const char* const value = MHD_lookup_connection_value(connection, kind, name);
  return value ? value : "";
}

/// While it exists, no signal is this thread's, nor that of a thread that begins meanwhile.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

struct PageServer::Stream {
  PageServer& server;
  MHD_Connection* connection;
  std::size_t seenEntries = 0;
  std::uint64_t seenMoment = 0;
  /// It kept up, and has not had the last moment yet.
  bool isOwed = false;
  /// What is on its way, and how much of it went out.
  std::string text = {};
  std::size_t done = 0;

  /// With the server's lock: what it has not seen yet, as one event.
  void take() {
    text = fmt::format("data: {{\"begins\":{},\"more\":[", seenEntries == 0);
    for (std::size_t i = seenEntries; i < server.entries_.size(); ++i)
      text += (i == seenEntries ? "" : ",") + server.entries_[i];
    text += fmt::format("],\"now\":{}}}\n\n", server.now_);
    seenEntries = server.entries_.size();
    seenMoment = server.moment_;
    done = 0;
  }
};

PageServer::PageServer(std::uint16_t port, bool takesOrders) {
  const int socket = boundSocket(port);
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &size);
  address_ = {.port = ntohs(bound.sin_port), .token = newToken(), .takesOrders = takesOrders};
  daemon_ = startedDaemon(socket);
}

PageServer::~PageServer() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    wakeStreams();
  }
  MHD_stop_daemon(daemon_);
}

int PageServer::boundSocket(std::uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in loopback{};
  loopback.sin_family = AF_INET;
  loopback.sin_port = htons(port);
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // The port of a session that ended a moment ago is free again.
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (socket >= 0 && ::bind(socket, reinterpret_cast<const sockaddr*>(&loopback), sizeof loopback) == 0 &&
      ::listen(socket, SOMAXCONN) == 0)
    return socket;
  const int error = errno;
  ::close(socket);
  throw CommandFailure(failed, fmt::format("cannot offer the page at 127.0.0.1:{}: {}", port,
                                           std::generic_category().message(error)));
}

MHD_Daemon* PageServer::startedDaemon(int socket) {
  const MHD_AccessHandlerCallback handler = [](void* server, MHD_Connection* connection, const char* path,
                                               const char* method, const char*, const char*,
                                               std::size_t* bodySize, void** begun) {
    // The first call comes with the head of the request, more with its body, of which nothing is read, and
    // one with its end.
    const bool isHead = !std::exchange(*begun, server);
    if (isHead) return MHD_YES;
    if (std::exchange(*bodySize, 0) != 0) return MHD_YES;
    const std::string_view host = valueOf(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
    return static_cast<MHD_Result>(
        static_cast<PageServer*>(server)->answer(connection, {method, path, host}));
  };
  const NoSignals noSignals;
  MHD_Daemon* const daemon =
      MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, handler,
                       this, MHD_OPTION_LISTEN_SOCKET, socket, MHD_OPTION_CONNECTION_TIMEOUT, patience,
                       MHD_OPTION_CONNECTION_LIMIT, mostConnections, MHD_OPTION_END);
  if (daemon) return daemon;
  ::close(socket);
  throw CommandFailure(failed, "cannot offer the page: its server does not start");
}

int PageServer::answer(MHD_Connection* connection, const PageRequest& request) {
  constexpr const char* plain = "text/plain; charset=utf-8";
  switch (verdictOn(request, address_)) {
    case PageVerdict::page:
      return send(connection, MHD_HTTP_OK, "text/html; charset=utf-8", pageText());
    case PageVerdict::stream:
      return answerStream(connection);
    case PageVerdict::order:
      takeOrder(connection, request);
      return send(connection, MHD_HTTP_ACCEPTED, plain, "It is on its way.\n");
    case PageVerdict::forbidden:
      return send(connection, MHD_HTTP_FORBIDDEN, plain, "Take the link that `tarsil run --page` prints.\n");
    case PageVerdict::unknown:
      return send(connection, MHD_HTTP_NOT_FOUND, plain, "There is no such page.\n");
    case PageVerdict::wrongMethod:
      return send(connection, MHD_HTTP_METHOD_NOT_ALLOWED, plain, "Not in this way.\n");
  }
  return MHD_NO;
}

void PageServer::takeOrder(MHD_Connection* connection, const PageRequest& request) const {
  DispatchQueue::main().async(
      [taker = orderTaker_, order = Order{std::string(orderIn(request.path)),
                                          std::string(valueOf(connection, MHD_GET_ARGUMENT_KIND, "word"))}] {
        if (*taker) (*taker)(order);
      });
}

int PageServer::answerStream(MHD_Connection* connection) {
  auto stream = std::make_unique<Stream>(Stream{.server = *this, .connection = connection});
  const Response response(
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, pieceSize, readStream, stream.get(), [](void* it) {
        auto* const ended = static_cast<Stream*>(it);
        ended->server.endStream(ended);
      }));
  if (!response) return MHD_NO;
  {
    const std::lock_guard lock(streamsMutex_);
    streams_.push_back(stream.release());
  }
  return send(connection, MHD_HTTP_OK, "text/event-stream", response);
}

void PageServer::endStream(Stream* stream) {
  const std::unique_ptr<Stream> ended(stream);
  const std::lock_guard lock(streamsMutex_);
  std::erase(streams_, stream);
}

ssize_t PageServer::readStream(void* stream, std::uint64_t, char* buffer, std::size_t size) {
  auto& self = *static_cast<Stream*>(stream);
  PageServer& server = self.server;
  const std::lock_guard lock(server.mutex_);
  if (self.done == self.text.size()) {
    if (self.seenMoment == server.moment_) {
      if (!server.isOver_) {
        server.waiting_.push_back(&self);
        MHD_suspend_connection(self.connection);
        return 0;
      }
      if (std::exchange(self.isOwed, false) && --server.owed_ == 0) server.allServed_.notify_one();
      return MHD_CONTENT_READER_END_OF_STREAM;
    }
    self.take();
  }
  const std::size_t count = std::min(size, self.text.size() - self.done);
  std::memcpy(buffer, self.text.data() + self.done, count);
  self.done += count;
  return static_cast<ssize_t>(count);
}

void PageServer::wakeStreams() {
  for (const Stream* stream : std::exchange(waiting_, {})) MHD_resume_connection(stream->connection);
}

void PageServer::add(std::string entry) {
  const std::lock_guard lock(mutex_);
  entries_.push_back(std::move(entry));
}

void PageServer::show(std::string now) {
  const std::lock_guard lock(mutex_);
  now_ = std::move(now);
  ++moment_;
  wakeStreams();
}

void PageServer::end(std::string now) {
  std::unique_lock lock(mutex_);
  isOver_ = true;
  {
    const std::lock_guard streamsLock(streamsMutex_);
    for (Stream* stream : streams_) stream->isOwed = stream->seenMoment + lastMoments > moment_;
    owed_ = static_cast<std::size_t>(
        std::count_if(streams_.begin(), streams_.end(), [](const Stream* stream) { return stream->isOwed; }));
  }
  now_ = std::move(now);
  ++moment_;
  wakeStreams();
  allServed_.wait_for(lock, farewell, [this] { return owed_ == 0; });
}

}  // namespace tarsil::cli
