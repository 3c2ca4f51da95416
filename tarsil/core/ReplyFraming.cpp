#include "tarsil/core/ReplyFraming.hpp"

namespace tarsil {
namespace {

class UnreadFraming final : public ReplyFraming {
 public:
  UnreadFraming() : ReplyFraming(0) {}

 private:
  std::optional<Found> find(ByteView /*kept*/) override { return std::nullopt; }
  void handOver(const Reply&, KivStressDevice&, ORSSerialPort&) const override {}
};

}  // namespace

std::vector<ReplyFraming::Reply> ReplyFraming::take(ByteView received) {
  std::vector<Reply> replies;
  const auto at = [this](std::size_t position) {
    return kept_.begin() + static_cast<std::ptrdiff_t>(position);
  };
  for (const std::uint8_t byte : received) {
    kept_.push_back(byte);
    if (const auto found = find(kept_)) {
      replies.push_back({Bytes(at(found->begin), at(found->end)), found->kind});
      discardedBytes_ += found->begin;
      kept_.erase(kept_.begin(), at(found->end));
    } else if (kept_.size() >= keptBytes_) {
      kept_.erase(kept_.begin());
      ++discardedBytes_;
    }
  }
  return replies;
}

void ReplyFraming::reset() {
  discardedBytes_ += kept_.size();
  kept_.clear();
}

void ReplyFraming::decode(const Reply& reply, KivStressDevice& decoder, ORSSerialPort& port) const {
  if (reply.kind != Kind::other) handOver(reply, decoder, port);
}

std::unique_ptr<ReplyFraming> makeUnreadFraming() {
  return std::make_unique<UnreadFraming>();
}

}  // namespace tarsil
