#include <tarsil/runtime/RunLoop.hpp>
