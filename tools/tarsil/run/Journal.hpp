#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/runtime/Clock.hpp"

namespace tarsil::cli {

/// Who an entry is about.
enum class Role { session, exercise, pressure, oximeter };

std::string_view nameOf(Role role);

/// One thing that happened in a session.
struct Entry {
  enum class Kind {
    /// The host asked a device for something.
    asked,
    /// A device reported something.
    answered,
    /// The session moved on: a stage began, a port opened.
    event,
    /// Something went wrong.
    failure,
  };

  /// Since the session began.
  Duration at{};
  Role role = Role::session;
  Kind kind = Kind::event;
  /// A word for programs: "setLoad", "load", "stage".
  std::string what;
  /// In the units of the interface: km/h and percent, watts, mmHg, percent.
  std::vector<float> values;
  /// The same for people.
  std::string text;
};

std::string_view nameOf(Entry::Kind kind);

/// What happens in a session, told to everybody who shows or writes it, in the order of joining. Main thread.
class Journal {
 public:
  using Reader = std::function<void(const Entry&)>;

  Journal() : start_(Clock::now()) {}

  void addReader(Reader reader) { readers_.push_back(std::move(reader)); }
  void note(Role role, Entry::Kind kind, std::string what, std::vector<float> values, std::string text);
  Clock::Instant start() const { return start_; }

 private:
  Clock::Instant start_;
  std::vector<Reader> readers_;
};

}  // namespace tarsil::cli
