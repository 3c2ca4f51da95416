#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tarsil/support/bytes.hpp"

/// The conversions that the drivers' rules speak of, one character after the other.
namespace tarsil::twins {

/// The number without its fraction; stops where no 64-bit integer is near.
std::int64_t truncated(float value);
/// Shortest, always with a fraction or an exponent.
std::string decimalText(float value);
std::string decimalText(double value);
/// Without zeros in front; a minus sign where there must be one.
std::string lowerHex(std::int64_t value);
/// Two digits a byte.
std::string upperHex(ByteView bytes);
/// A piece that begins with no digit repeats the byte before it.
Bytes bytesOf(const std::string& hexText);
/// What is no digit is passed over.
std::int64_t numberOf(const std::string& hexText);
std::vector<std::string> piecesOf(const std::string& text);
/// CRC-16/ARC over the low bytes: low byte first, two digits each.
std::vector<std::string> checkOf(const std::vector<std::int64_t>& values);
std::string repeated(const std::string& text, int times);

}  // namespace tarsil::twins
