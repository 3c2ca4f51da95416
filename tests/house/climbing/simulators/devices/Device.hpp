#pragma once

#include "simulators/lines/PseudoTerminalLine.hpp"
#include "tools/tarsil/Command.hpp"
