#include "tools/tarsil/Interruption.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "tarsil/runtime/RunLoop.hpp"

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
  signals_ = FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (signals_.get() < 0) throw std::system_error(errno, std::generic_category(), "signalfd");

  // The machine's news: on virtual time a look at it each turn would take half of the time.
  watch_ = RunLoop::main().watch(signals_.get(), [descriptor = signals_.get(), action = std::move(action),
                                                  onHangUp = std::move(onHangUp)] {
    signalfd_siginfo signal;
    if (read(descriptor, &signal, sizeof signal) != sizeof signal) return;
    signal.ssi_signo == SIGHUP ? onHangUp() : action();
  });
}

Interruption::~Interruption() {
  watch_.reset();
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace tarsil::cli
