#pragma once

#include "RunCommand.hpp"
#include "tarsil/serial/detail/PacketMatcher.hpp"
#include "tools/tarsil/report/Report.hpp"
