#include "tarsil/bluetooth/bluez/detail/Lifeline.hpp"

#include <chrono>

#include "tarsil/runtime/RunLoop.hpp"
#include "tarsil/runtime/Timer.hpp"

namespace tarsil::bluez {

void Lifeline::later(Work work) const {
  DispatchQueue::main().async(guarded(std::move(work)));
}

void Lifeline::afterPause(std::function<void()> work) const {
  Timer::scheduledOn(RunLoop::main(), std::chrono::seconds(1), false,
                     [again = guarded(std::move(work))](Timer&) { again(); });
}

}  // namespace tarsil::bluez
