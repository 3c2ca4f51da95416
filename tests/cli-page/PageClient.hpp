#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace tarsil::cli {

/// A connection to the page's server that says and takes bytes only when it is told to.
class PageClient {
 public:
  explicit PageClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    // A kernel that buffers for a client that does not read would hide it.
    const int size = 4096;
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~PageClient() { close(socket_); }
  PageClient(const PageClient&) = delete;
  PageClient& operator=(const PageClient&) = delete;

  void say(const std::string& text) const {
    EXPECT_EQ(send(socket_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  }

  /// Reads on until all that came has this text; false when the connection ends before.
  bool hears(const std::string& text) {
    while (heard_.find(text) == std::string::npos) {
      std::array<char, 4096> buffer{};
      const ssize_t count = recv(socket_, buffer.data(), buffer.size(), 0);
      if (count <= 0) return false;
      heard_.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return true;
  }
  /// Everything up to the connection's end.
  const std::string& all() {
    while (hears(std::string(1, '\0') + "never said")) continue;
    return heard_;
  }
  const std::string& heard() const { return heard_; }

 private:
  int socket_;
  std::string heard_;
};

/// A link as the program prints it: "http://127.0.0.1:4321/0123/".
struct PageLink {
  explicit PageLink(const std::string& link) {
    const std::size_t host = std::string("http://").size();
    const std::size_t path = link.find('/', host);
    authority = link.substr(host, path - host);
    port = static_cast<std::uint16_t>(std::stoi(authority.substr(authority.find(':') + 1)));
    folder = link.substr(path);
  }

  std::string authority;
  std::uint16_t port = 0;
  /// "/0123/"
  std::string folder;
};

inline std::string requestText(const std::string& method, const std::string& path, const std::string& host) {
  return method + " " + path + " HTTP/1.1\r\nHost: " + host +
         "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
}

/// The whole answer to one request, head and body.
inline std::string answerTo(const PageLink& link, const std::string& method, const std::string& path) {
  PageClient client(link.port);
  client.say(requestText(method, path, link.authority));
  return client.all();
}

}  // namespace tarsil::cli
