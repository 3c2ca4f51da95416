# The language and the warnings of this project's own targets; a host that embeds the library keeps its own.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# tarsil_own(target): all warnings that we keep clean. Only our presets make them errors: another compiler's new warning
# is no reason for a host not to build.
function(tarsil_own target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                                           -Wconversion -Wsign-conversion)
  # Its optimiser sees overlaps and overruns in correct uses of std::string and std::vector: "text" + std::string,
  # and bytes inserted at the end of a vector whose size it knows.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow
                                             -Wno-stringop-overread)
  endif()
endfunction()
