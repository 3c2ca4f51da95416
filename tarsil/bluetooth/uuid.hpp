#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarsil {

/// The one text that this library uses for a UUID, so that texts can be compared: four upper-case digits for
/// a 16-bit UUID ("FFB0"), upper-case 128-bit text for every other.
///
/// `text` may be a 16-bit, 32-bit or 128-bit UUID in either case ("ffb0", "0000ffb0",
/// "0000ffb0-0000-1000-8000-00805f9b34fb"); none when it is no UUID. Any thread.
std::optional<std::string> bluetoothUUIDText(std::string_view text);

}  // namespace tarsil
