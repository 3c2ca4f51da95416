#pragma once

#include "doubles/ScriptedTerminal.hpp"
#include "tarsil/runtime/VirtualTime.hpp"
#include "tarsil/serial/ORSSerialPort.hpp"
#include "tarsil/support/bytes.hpp"

namespace tarsil::cli {

/// The terminal that a scripted port is opened through.
doubles::ScriptedTerminal& scriptedTerminal(const ORSSerialPort& port);

/// Delivers one chunk to the port and, in one piece, to its delegate, `driver`. An open port reads the bytes;
/// a chunk that no port reads (it is empty, or the port is closed) goes to the driver alone.
void deliverChunk(VirtualTime& time, ORSSerialPort& port, ORSSerialPortDelegate& driver, const Bytes& chunk);

}  // namespace tarsil::cli
