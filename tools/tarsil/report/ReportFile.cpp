#include "tools/tarsil/report/ReportFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <tuple>
#include <utility>

namespace tarsil::cli {

ReportFile::ReportFile(std::filesystem::path path) : path_(std::move(path)) {
  descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor_ < 0) fail("create", errno);
}

ReportFile::~ReportFile() {
  if (descriptor_ != closed) ::close(descriptor_);
}

void ReportFile::write(std::string_view text) {
  if (descriptor_ == closed) return;
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      // Half a line would be read as a wrong one. What is no file cannot be cut, and keeps nothing either.
      std::ignore = ::ftruncate(descriptor_, static_cast<off_t>(size_));
      ::close(std::exchange(descriptor_, closed));
      fail("write", error);
    }
  }
  size_ += text.size();
}

void ReportFile::close() {
  if (descriptor_ == closed) return;
  if (::close(std::exchange(descriptor_, closed)) < 0) fail("write", errno);
}

void ReportFile::fail(const char* deed, int error) {
  throw ReportError(
      fmt::format("cannot {} {}: {}", deed, path_.string(), std::generic_category().message(error)));
}

}  // namespace tarsil::cli
