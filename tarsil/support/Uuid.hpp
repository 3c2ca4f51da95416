#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tarsil {

/// A universally unique identifier. Any thread.
class Uuid {
 public:
  /// A new random one (version 4). Throws std::runtime_error when the system has no random numbers.
  static Uuid random();

  /// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"
  std::string string() const;
  std::size_t hash() const;
  bool operator==(const Uuid&) const = default;

 private:
  explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

  std::array<std::uint8_t, 16> bytes_;
};

}  // namespace tarsil
