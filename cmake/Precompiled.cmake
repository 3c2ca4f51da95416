# Precompiled headers: what most sources include anyway, read once. They change nothing but the time: every source includes
# what it uses and compiles without them (-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON). Only headers from outside the project
# belong here, so that an edit of ours never costs the world. A build that embeds this one, and one of shared libraries,
# whose flags differ from target to target, goes without.
add_library(tarsil-precompiled OBJECT EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/precompiled.cpp)
tarsil_own(tarsil-precompiled)
set(TARSIL_STANDARD_HEADERS <algorithm> <array> <chrono> <cstdint> <deque> <functional> <map> <memory> <mutex> <optional>
                            <span> <string> <string_view> <utility> <vector>)
target_precompile_headers(tarsil-precompiled PRIVATE ${TARSIL_STANDARD_HEADERS})

# tarsil_precompile(target [header...]): the standard library's headers, shared by all targets that name no other ones.
function(tarsil_precompile target)
  if(NOT PROJECT_IS_TOP_LEVEL OR BUILD_SHARED_LIBS)
    return()
  endif()
  if(ARGN)
    target_precompile_headers(${target} PRIVATE ${TARSIL_STANDARD_HEADERS} ${ARGN})
  else()
    target_precompile_headers(${target} REUSE_FROM tarsil-precompiled)
  endif()
endfunction()
