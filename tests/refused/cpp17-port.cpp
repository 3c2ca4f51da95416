#include <tarsil/serial/ORSSerialPortManager.hpp>
