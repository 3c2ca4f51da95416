# GNUstep::base, the Foundation library with GCC's Objective-C runtime, and GNUSTEP_C_COMPILER and GNUSTEP_CXX_COMPILER,
# which have the front ends for it. GCC's even where all else is clang's: on this runtime clang's Objective-C++ breaks C++
# exceptions.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(GNUSTEP_CXX_COMPILER ${CMAKE_CXX_COMPILER})
else()
  find_program(GNUSTEP_CXX_COMPILER g++)
endif()
# Its neighbour: "g++-12" stands beside "gcc-12".
string(REGEX REPLACE "(g|c)\\+\\+([^/]*)$" "gcc\\2" GNUSTEP_C_COMPILER "${GNUSTEP_CXX_COMPILER}")

find_path(GNUSTEP_INCLUDE_DIR Foundation/Foundation.h PATH_SUFFIXES GNUstep)
find_library(GNUSTEP_BASE_LIBRARY gnustep-base)
mark_as_advanced(GNUSTEP_INCLUDE_DIR GNUSTEP_BASE_LIBRARY)

set(GNUstep_OPTIONS -fexceptions -fobjc-exceptions -fconstant-string-class=NSConstantString -DGNUSTEP
                    -DGNUSTEP_BASE_LIBRARY=1 -DGNU_RUNTIME=1 -D_NATIVE_OBJC_EXCEPTIONS)

# Only compiling tells whether the compiler has the front end.
set(GNUstep_COMPILES FALSE)
if(GNUSTEP_CXX_COMPILER AND GNUSTEP_INCLUDE_DIR AND GNUSTEP_BASE_LIBRARY)
  set(probe ${CMAKE_BINARY_DIR}/CMakeFiles/FindGNUstep.mm)
  file(WRITE ${probe} "#import <Foundation/Foundation.h>\n")
  execute_process(COMMAND ${GNUSTEP_CXX_COMPILER} -fsyntax-only ${GNUstep_OPTIONS} -isystem ${GNUSTEP_INCLUDE_DIR} ${probe}
                  RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
  if(failed EQUAL 0)
    set(GNUstep_COMPILES TRUE)
  endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GNUstep REQUIRED_VARS GNUSTEP_BASE_LIBRARY GNUSTEP_INCLUDE_DIR GNUstep_COMPILES)

if(GNUstep_FOUND AND NOT TARGET GNUstep::base)
  add_library(GNUstep::base INTERFACE IMPORTED)
  set_target_properties(
    GNUstep::base
    PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${GNUSTEP_INCLUDE_DIR}
               INTERFACE_COMPILE_OPTIONS "$<$<COMPILE_LANGUAGE:OBJC,OBJCXX>:${GNUstep_OPTIONS}>"
               INTERFACE_LINK_LIBRARIES "${GNUSTEP_BASE_LIBRARY};objc")
endif()
