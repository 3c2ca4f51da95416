#pragma once

#include "simulators/hosting/Orders.hpp"
#include "tools/tarsil/Command.hpp"
