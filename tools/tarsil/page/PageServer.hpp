#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/tarsil/page/PageRequest.hpp"

struct MHD_Connection;
struct MHD_Daemon;

namespace tarsil::cli {

/// Serves the live page on the loopback address, from a thread of its own: one for all browsers, which never
/// waits for any of them. What a session has to say is put here, and each browser takes it as fast as it
/// reads. Main thread.
class PageServer {
 public:
  /// What somebody at the page wants: "stop", "mark" with its word.
  struct Order {
    std::string name;
    std::string word;
  };

  /// Port 0 is one that is free. Throws CommandFailure when the port cannot be had.
  PageServer(std::uint16_t port, bool takesOrders);
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  const PageAddress& address() const { return address_; }

  /// Who does what is ordered, on the main queue; nobody: orders are lost.
  void setOrderTaker(std::function<void(const Order&)> taker) { *orderTaker_ = std::move(taker); }

  /// A JSON text that every browser gets once, in order, however late it comes.
  void add(std::string entry);
  /// A JSON text of this moment, in place of the one before, which a slow browser never gets.
  void show(std::string now);
  /// The last one. Waits until the browsers that kept up have it, a second at the most.
  void end(std::string now);

 private:
  /// A browser that hears the events.
  struct Stream;

  static int boundSocket(std::uint16_t port);
  MHD_Daemon* startedDaemon(int socket);
  int answer(MHD_Connection* connection, const PageRequest& request);
  int answerStream(MHD_Connection* connection);
  void endStream(Stream* stream);
  void takeOrder(MHD_Connection* connection, const PageRequest& request) const;
  /// On the server's thread: what a browser gets next; see MHD_ContentReaderCallback.
  static ssize_t readStream(void* stream, std::uint64_t position, char* buffer, std::size_t size);
  void wakeStreams();

  PageAddress address_;
  const std::shared_ptr<std::function<void(const Order&)>> orderTaker_ =
      std::make_shared<std::function<void(const Order&)>>();

  /// Guards what follows: held for moments, by the main thread and by the server's.
  std::mutex mutex_;
  std::vector<std::string> entries_;
  std::string now_;
  /// Counts the calls of `show`.
  std::uint64_t moment_ = 0;
  bool isOver_ = false;
  /// Streams that have everything, suspended until there is more.
  std::vector<Stream*> waiting_;
  /// Streams that kept up and do not have the last moment yet.
  std::size_t owed_ = 0;
  std::condition_variable allServed_;

  /// Guards the streams that are open. Nothing else is locked while it is held: the server may hold locks of
  /// its own when it ends a stream.
  std::mutex streamsMutex_;
  std::vector<Stream*> streams_;

  MHD_Daemon* daemon_;
};

}  // namespace tarsil::cli
