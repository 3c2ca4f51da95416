# The warnings and flags of this project's own targets; a host that embeds the library keeps its own.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# tarsil_own(target): warnings as errors, and the repository root as the include path for <tarsil/...>.
function(tarsil_own target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                                           -Wconversion -Wsign-conversion -Werror
                         # g++ 12 sees overlapping copies in every "text" + std::string that it optimises.
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
endfunction()
