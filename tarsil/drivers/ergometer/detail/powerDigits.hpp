#pragma once

#include <string>

namespace tarsil {

/// The three characters in which an ergometer takes its power: whole watts, fraction dropped, filled up with
/// zeros on the left. A longer number keeps its first three characters, so 1250 W gives "125"; a sign counts
/// as a character, so -5 W gives "0-5". A value that is not finite, or that lies outside the 64-bit range,
/// stops the process. Any thread.
std::string powerDigits(float watts);

}  // namespace tarsil
