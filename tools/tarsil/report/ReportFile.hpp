#pragma once

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace tarsil::cli {

/// A report cannot be written; the text names the file and the reason.
struct ReportError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A file that is written straight to the system, so that what was written is there whatever happens next.
class ReportFile {
 public:
  /// Makes the file or empties it. Throws ReportError.
  explicit ReportFile(std::filesystem::path path);
  ~ReportFile();
  ReportFile(const ReportFile&) = delete;
  ReportFile& operator=(const ReportFile&) = delete;

  /// Throws ReportError when not all of it could be written; the part that was is taken back where the file
  /// allows it, and later calls do nothing.
  void write(std::string_view text);
  /// Throws ReportError when the system admits now that something was not written.
  void close();

 private:
  static constexpr int closed = -1;

  [[noreturn]] void fail(const char* deed, int error);

  const std::filesystem::path path_;
  int descriptor_ = closed;
  /// Of whole texts.
  std::size_t size_ = 0;
};

}  // namespace tarsil::cli
