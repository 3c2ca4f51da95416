#pragma once

#include "tarsil/platform/linux/LinuxTerminal.hpp"
