#include "tarsil/runtime/DispatchSource.hpp"

#include <utility>

#include "tarsil/runtime/detail/ReadSource.hpp"
#include "tarsil/runtime/detail/TimerSource.hpp"

namespace tarsil {
namespace {

/// The hosts' share in a source; dropping the last one cancels it. The runtime's own share lasts until the
/// cancel handler has run.
class SourceHandle final : public DispatchSource {
 public:
  explicit SourceHandle(std::shared_ptr<detail::Source> source) : source_(std::move(source)) {}
  ~SourceHandle() override { source_->cancel(); }

  void setEventHandler(Work handler) override { source_->setEventHandler(std::move(handler)); }
  void setCancelHandler(Work handler) override { source_->setCancelHandler(std::move(handler)); }
  void resume() override { source_->resume(); }
  void cancel() override { source_->cancel(); }
  bool isCancelled() const override { return source_->isCancelled(); }

 private:
  const std::shared_ptr<detail::Source> source_;
};

}  // namespace

std::shared_ptr<DispatchSource> DispatchSource::read(int descriptor, DispatchQueue queue) {
  return std::make_shared<SourceHandle>(std::make_shared<detail::ReadSource>(descriptor, std::move(queue)));
}

std::shared_ptr<DispatchSource> DispatchSource::timer(Duration delay, Duration interval, Duration leeway,
                                                      DispatchQueue queue) {
  return std::make_shared<SourceHandle>(
      std::make_shared<detail::TimerSource>(delay, interval, leeway, std::move(queue)));
}

}  // namespace tarsil
