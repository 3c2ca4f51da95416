#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tarsil {
class DispatchSource;
}

namespace tarsil::cli {

/// Lines from standard input, taken while the main run loop goes on. On a terminal they can be edited and
/// called back with the arrow keys (where the program was built with libedit), and what is printed meanwhile
/// stands above the line that is being typed. One at a time; main thread.
class Prompt {
 public:
  /// `onLine` is called for each line, `onEnd` once when there is no more.
  Prompt(std::function<void(const std::string&)> onLine, std::function<void()> onEnd);
  ~Prompt();
  Prompt(const Prompt&) = delete;
  Prompt& operator=(const Prompt&) = delete;

  /// What stands before the cursor on a terminal, of one width for good; elsewhere it is left out.
  void setText(const std::string& text);
  /// One line above it.
  void print(const std::string& line);

 private:
  void redraw() const;
  void readSome();
  void readPlainly();
  void end();
  /// Called by the editor with a line that is its caller's to free, null at the end.
  static void takeLine(char* line);

  const std::function<void(const std::string&)> onLine_;
  const std::function<void()> onEnd_;
  const bool isEdited_;
  bool hasEnded_ = false;
  /// A line was typed and is being done.
  bool isTaking_ = false;
  std::string text_;
  /// What stands behind it, and how much of that behind the cursor.
  std::string typed_;
  int behindCursor_ = 0;
  /// Of a line that is no terminal's.
  std::string begun_;
  std::shared_ptr<DispatchSource> source_;
};

}  // namespace tarsil::cli
