# tarsil_part(option what [package debian-package]...): a part beside the library, chosen by an option.
#   ON     it is built; a package that is missing is an error
#   OFF    it is not built
#   unset  it is built when this project is built for itself and all packages are there; otherwise one line names the
#          first that is missing. Nothing of this is kept: once the package is there, so is the part.
function(tarsil_part option what)
  if(DEFINED ${option})
    return()
  endif()
  set(${option} ${PROJECT_IS_TOP_LEVEL})
  while(${option} AND ARGN)
    list(POP_FRONT ARGN package debian_package)
    find_package(${package} QUIET)
    if(NOT ${package}_FOUND)
      message(STATUS "left out: ${what}; ${package} is missing (${debian_package})")
      set(${option} OFF)
    endif()
  endwhile()
  set(${option} ${${option}} PARENT_SCOPE)
endfunction()
