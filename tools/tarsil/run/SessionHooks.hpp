#pragma once

#include <memory>
#include <string>

#include "tarsil/support/process.hpp"
#include "tools/tarsil/run/Journal.hpp"

namespace tarsil::cli {

/// Between the library and the process while a session runs. What the library prints goes into the journal:
/// its own texts as events, port errors as failures; raw bytes that a driver prints are left out. Where a
/// driver would stop the process or hang, LibraryStopped is thrown instead, so that a moving belt can be
/// stopped first.
class SessionHooks {
 public:
  /// The journal must outlive this object. Main thread.
  explicit SessionHooks(Journal& journal);
  ~SessionHooks();
  SessionHooks(const SessionHooks&) = delete;
  SessionHooks& operator=(const SessionHooks&) = delete;

 private:
  void note(const std::string& text, PrintedText kind);

  Journal& journal_;
  /// Lets what other threads printed come to nothing when this object is gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  ProcessHooks before_;
};

}  // namespace tarsil::cli
