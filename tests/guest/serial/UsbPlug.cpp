#include "tests/guest/serial/UsbPlug.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace tarsil {
namespace {

const std::string controller = "/sys/devices/platform/vhci_hcd.0/";

// The messages, and their fields: big-endian numbers of four bytes each, but for the request's own bytes.
enum MessageType : std::uint32_t { submitted = 1, unlinked = 2, submitAnswer = 3, unlinkAnswer = 4 };
constexpr std::size_t headerSize = 48;
constexpr std::size_t requestPosition = 40;

constexpr std::int32_t refused = -EPIPE;
constexpr std::int32_t unanswered = -EPROTO;

std::uint32_t read32(ByteView bytes, std::size_t field) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value = value << 8U | bytes[4 * field + i];
  return value;
}

void write32(Bytes& bytes, std::uint32_t value) {
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    bytes.push_back(static_cast<std::uint8_t>(value >> shift & 0xFFU));
  }
}

std::uint16_t littleEndian(ByteView bytes, std::size_t position) {
  return static_cast<std::uint16_t>(bytes[position] | bytes[position + 1] << 8U);
}

/// 0, or an errno.
int order(const std::string& name, const std::string& words) {
  const int file = open((controller + name).c_str(), O_WRONLY | O_CLOEXEC);
  const int error = write(file, words.data(), words.size()) < 0 ? errno : 0;
  close(file);
  return error;
}

bool erase(std::deque<UsbPlug::Transfer>& transfers, UsbPlug::Transfer transfer) {
  const auto found = std::find(transfers.begin(), transfers.end(), transfer);
  if (found == transfers.end()) return false;
  transfers.erase(found);
  return true;
}

}  // namespace

struct UsbPlug::Header {
  explicit Header(ByteView bytes)
      : type(read32(bytes, 0)),
        transfer(read32(bytes, 1)),
        isInput(read32(bytes, 3) != 0),
        endpoint(read32(bytes, 4)),
        // Of the transfer that is taken back.
        unlinkedTransfer(read32(bytes, 5)),
        length(read32(bytes, 6)),
        request{.type = bytes[requestPosition],
                .number = bytes[requestPosition + 1],
                .value = littleEndian(bytes, requestPosition + 2),
                .index = littleEndian(bytes, requestPosition + 4)} {}

  std::size_t outputSize() const { return type == submitted && !isInput ? length : 0; }

  std::uint32_t type;
  Transfer transfer;
  bool isInput;
  std::uint32_t endpoint;
  Transfer unlinkedTransfer;
  std::uint32_t length;
  Request request;
};

UsbPlug::UsbPlug(unsigned socket, Device device) : socket_(socket), device_(std::move(device)) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
    throw std::system_error(errno, std::generic_category());
  constexpr int fullSpeed = 2;
  const unsigned identifier = socket + 2;
  const int error = order("attach", std::to_string(socket) + " " + std::to_string(ends[1]) + " " +
                                        std::to_string(identifier) + " " + std::to_string(fullSpeed));
  close(ends[1]);
  if (error != 0) {
    close(ends[0]);
    throw std::system_error(error, std::generic_category(), "attach");
  }
  connection_ = ends[0];
  source_ = DispatchSource::read(connection_, DispatchQueue::main());
  source_->setEventHandler([this] { read(MSG_DONTWAIT); });
  source_->setCancelHandler([connection = connection_] { close(connection); });
  source_->resume();
}

// What the kernel has asked for and asks until it has heard fails at once, as with a device that is gone: it
// would wait five seconds for an answer that does not come.
UsbPlug::~UsbPlug() {
  isGone_ = true;
  order("detach", std::to_string(socket_));
  constexpr timeval patience{.tv_sec = 5, .tv_usec = 0};
  setsockopt(connection_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  while (read(0)) {
  }
  source_->cancel();
}

bool UsbPlug::read(int flags) {
  std::array<std::uint8_t, 65536> buffer;
  const ssize_t count = recv(connection_, buffer.data(), buffer.size(), flags);
  if (count <= 0) return false;
  received_.insert(received_.end(), buffer.begin(), buffer.begin() + count);
  while (takeMessage()) {
  }
  return true;
}

bool UsbPlug::takeMessage() {
  if (received_.size() < headerSize) return false;
  const Header header(received_);
  const std::size_t size = headerSize + header.outputSize();
  if (received_.size() < size) return false;
  const Bytes output(received_.begin() + headerSize, received_.begin() + static_cast<std::ptrdiff_t>(size));
  received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(size));
  if (header.type == submitted) submit(header, output);
  if (header.type == unlinked) unlink(header);
  return true;
}

void UsbPlug::submit(const Header& header, ByteView output) {
  if (isGone_) return complete(header.transfer, unanswered, {}, 0);
  if (header.endpoint == 0) {
    auto answer = device_.answer(header.request);
    if (!answer) return complete(header.transfer, refused, {}, 0);
    if (!header.isInput) return complete(header.transfer, 0, {}, header.length);
    answer->resize(std::min<std::size_t>(answer->size(), header.length));
    return complete(header.transfer, 0, *answer, answer->size());
  }
  if (header.isInput) {
    wanted_.push_back(header.transfer);
    return device_.wanted();
  }
  untaken_.push_back(header.transfer);
  device_.sent(header.transfer, Bytes(output.begin(), output.end()));
}

void UsbPlug::unlink(const Header& header) {
  const Transfer transfer = header.unlinkedTransfer;
  const bool isWithdrawn = erase(untaken_, transfer);
  if (isWithdrawn && !isGone_) device_.withdrawn(transfer);
  const bool waited = isWithdrawn || erase(wanted_, transfer);
  Bytes message;
  write32(message, unlinkAnswer);
  write32(message, header.transfer);
  for (int i = 0; i < 3; ++i) write32(message, 0);
  write32(message, waited ? static_cast<std::uint32_t>(-ECONNRESET) : 0);
  message.resize(headerSize);
  send(connection_, message.data(), message.size(), MSG_NOSIGNAL);
}

void UsbPlug::give(ByteView input) {
  const Transfer transfer = wanted_.front();
  wanted_.pop_front();
  complete(transfer, 0, input, input.size());
}

void UsbPlug::taken(Transfer transfer, std::size_t count) {
  if (erase(untaken_, transfer)) complete(transfer, 0, {}, count);
}

void UsbPlug::complete(Transfer transfer, std::int32_t status, ByteView input, std::size_t count) {
  Bytes message;
  write32(message, submitAnswer);
  write32(message, transfer);
  for (int i = 0; i < 3; ++i) write32(message, 0);
  write32(message, static_cast<std::uint32_t>(status));
  write32(message, static_cast<std::uint32_t>(count));
  message.resize(headerSize);
  message.insert(message.end(), input.begin(), input.end());
  send(connection_, message.data(), message.size(), MSG_NOSIGNAL);
}

}  // namespace tarsil
