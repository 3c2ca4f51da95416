#pragma once

#include <memory>
#include <string>

/// A host's whole session, the same in every example: a minute of a treadmill walk, cut short as soon as the
/// belt moves.
class Walk {
 public:
  /// `path` is the serial device of a Lode treadmill.
  explicit Walk(const std::string& path);

  /// True when the belt has moved, or something has gone wrong.
  bool isOver() const;
  /// 0 when the belt has moved.
  int exitCode() const;

 private:
  struct Host;
  std::shared_ptr<Host> host_;
};
