#pragma once

#include <sys/epoll.h>

#include "tarsil/platform/linux/LinuxTerminal.hpp"
