# The tool's libraries from the system (libpng, OpenSSL, zlib): required in a native build. A
# cross build finds the build machine's copies, which do not link for the target; there a library
# counts only when a program calling it links, and without it the commands that need it are
# compiled out (they say so in one line).
#
# fbc_optional_library(PACKAGE DEFINE TARGET IMPORTED HEADER CALL [find_package arguments...])
#   links TARGET privately with IMPORTED and defines DEFINE as 1 or 0 for TARGET's sources.
include_guard(GLOBAL)
include(CheckCXXSourceCompiles)

function(fbc_optional_library package define target imported header call)
  if(NOT CMAKE_CROSSCOMPILING)
    find_package(${package} REQUIRED ${ARGN})
    set(have TRUE)
  else()
    find_package(${package} QUIET ${ARGN})
    set(have FALSE)
    if(TARGET ${imported})
      set(CMAKE_REQUIRED_LIBRARIES ${imported})
      set(CMAKE_REQUIRED_QUIET ON)
      check_cxx_source_compiles("#include <${header}>\nint main() { (void)${call}; return 0; }"
                                ${define}_LINKS)
      set(have ${${define}_LINKS})
    endif()
    if(NOT have)
      message(STATUS "${package}: none that links for ${CMAKE_SYSTEM_PROCESSOR}; what needs it is compiled out")
    endif()
  endif()
  if(have)
    target_link_libraries(${target} PRIVATE ${imported})
    target_compile_definitions(${target} PRIVATE ${define}=1)
  else()
    target_compile_definitions(${target} PRIVATE ${define}=0)
  endif()
endfunction()
