#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace tarsil::detail {

/// Where a line's watcher leaves its record; `records` as in a watcher's plan.
std::string recordPath(const std::string& line, const std::string& records);

/// Where a line's watcher hears the next host: a name that vanishes with the process, in no file system.
struct MailAddress {
  explicit MailAddress(const std::string& line);

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  socklen_t length() const { return length_; }

 private:
  sockaddr_un address_{};
  socklen_t length_;
};

}  // namespace tarsil::detail
