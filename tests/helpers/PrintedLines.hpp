#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarsil/support/process.hpp"

namespace tarsil {

/// While it exists, lines that the library would print come here instead. Make it before other threads run
/// library code and drop it after them; lines may be printed and asked for on any thread.
class PrintedLines {
 public:
  PrintedLines();
  ~PrintedLines();
  PrintedLines(const PrintedLines&) = delete;
  PrintedLines& operator=(const PrintedLines&) = delete;

  /// The library's own fixed texts.
  std::vector<std::string> fixed() const;
  /// Words for whoever debugs.
  std::vector<std::string> diagnostic() const;

 private:
  struct Record;
  std::shared_ptr<Record> record_;
  ScopedProcessHooks hooks_;
};

}  // namespace tarsil
