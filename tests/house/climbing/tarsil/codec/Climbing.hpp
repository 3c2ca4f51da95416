#pragma once

#include <tarsil/serial/ORSSerialPort.hpp>
