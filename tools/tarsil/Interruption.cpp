#include "tools/tarsil/Interruption.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "tarsil/runtime/DispatchSource.hpp"

namespace tarsil::cli {

Interruption::Interruption(std::function<void()> action) : Interruption(action, action) {}

Interruption::Interruption(std::function<void()> action, std::function<void()> onHangUp) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // The terminal was closed. Under nohup that is no reason to stop.
  struct sigaction hangUp {};
  sigaction(SIGHUP, nullptr, &hangUp);
  if (hangUp.sa_handler != SIG_IGN) sigaddset(&signals, SIGHUP);
  // Threads that start from here on inherit this, so that the signals wait for the descriptor.
  pthread_sigmask(SIG_BLOCK, &signals, &before_);
  const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");

  source_ = DispatchSource::read(descriptor, DispatchQueue::main());
  source_->setEventHandler([descriptor, action = std::move(action), onHangUp = std::move(onHangUp)] {
    signalfd_siginfo signal;
    if (read(descriptor, &signal, sizeof signal) != sizeof signal) return;
    signal.ssi_signo == SIGHUP ? onHangUp() : action();
  });
  source_->setCancelHandler([descriptor] { close(descriptor); });
  source_->resume();
}

Interruption::~Interruption() {
  source_->cancel();
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace tarsil::cli
