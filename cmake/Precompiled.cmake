# Precompiled headers: what most sources include anyway, read once. They change nothing but the time: every source includes
# what it uses and compiles without them (-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON). They hold only headers from outside, so
# that an edit of ours never costs the world, and only those that emit nothing by themselves: the option and JSON headers
# of the command line cost every source more than they save. A build that embeds this one, and one of shared libraries,
# whose flags differ from target to target, goes without.
set(TARSIL_STANDARD_HEADERS <algorithm> <array> <chrono> <cstdint> <deque> <functional> <map> <memory> <mutex> <optional>
                            <span> <string> <string_view> <utility> <vector>)
set(TARSIL_PRECOMPILED ${PROJECT_IS_TOP_LEVEL})
if(BUILD_SHARED_LIBS)
  set(TARSIL_PRECOMPILED OFF)
endif()

if(TARSIL_PRECOMPILED)
  add_library(tarsil-precompiled OBJECT EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/precompiled.cpp)
  tarsil_own(tarsil-precompiled)
  target_precompile_headers(tarsil-precompiled PRIVATE ${TARSIL_STANDARD_HEADERS})
endif()

# tarsil_precompile(target): it shares the precompiled headers.
function(tarsil_precompile target)
  if(TARSIL_PRECOMPILED)
    target_precompile_headers(${target} REUSE_FROM tarsil-precompiled)
  endif()
endfunction()
