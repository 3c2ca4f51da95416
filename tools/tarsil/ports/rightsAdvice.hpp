#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace tarsil::cli {

/// What a user without the right to open the file can do about it: join its group, when the group has the
/// right.
std::string rightsAdvice(const struct stat& file);

/// Why this process cannot open the device for reading and writing, and what helps; none when it can.
std::optional<std::string> whyNotOpenable(const std::string& path);

}  // namespace tarsil::cli
