#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace peers {

/// What a host does with one serial line, by one way of doing it: bytes that arrive are handed over on the
/// thread that made the peer.
class Peer {
 public:
  virtual ~Peer() = default;

  virtual std::string name() const = 0;
  /// Whether bytes come to the main thread from a reader in the background, as a host with a window needs it.
  virtual bool readsInBackground() const = 0;
  /// Opens the terminal, raw.
  virtual void open(const std::string& path) = 0;
  /// Sends the bytes; false when it could not.
  virtual bool send(const std::string& bytes) = 0;
  /// Returns when so many bytes more were handed over; false when they do not come within 10 s.
  virtual bool receive(std::size_t count) = 0;
  virtual void close() = 0;
};

using Peers = std::vector<std::unique_ptr<Peer>>;

// One a file. Those of a library that is missing add nothing.
void addBare(Peers& peers);
void addTarsil(Peers& peers);
void addAsio(Peers& peers);
void addQt(Peers& peers);
void addLibserial(Peers& peers);
void addLibserialport(Peers& peers);

/// pyserial cannot be a peer of this process: it times itself in one of its own.
struct PyserialTurn {
  std::vector<double> trips;  // µs
  double streamSeconds = 0;
};
bool hasPyserial();
/// None when it fails. The device must have been told already to answer so many questions, then to stream.
std::optional<PyserialTurn> takePyserialTurn(const std::string& path, int warming, int timed,
                                             std::size_t streamed);

}  // namespace peers
