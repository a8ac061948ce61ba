# What `cmake --install` puts under the prefix, and the package files other builds find it by:
# fbcConfig.cmake (targets fbc::fbc, the shared C library, and the static C++ parts
# fbc::codec, fbc::framework, fbc::image, fbc::config, fbc::core), fbc.pc for pkg-config, and
# the same as a .deb and a .tar.gz through CPack.
include(CMakePackageConfigHelpers)

set(FBC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/fbc)

# The C++ parts' headers install under include/fbc/ with their in-tree paths ("codec/...").
foreach(part ${FBC_PARTS})
  string(REPLACE "fbc_" "" name ${part})
  set_target_properties(${part} PROPERTIES EXPORT_NAME ${name})
  target_include_directories(${part} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/fbc>
                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endforeach()
set_target_properties(fbc_core PROPERTIES EXPORT_NAME core)
set_target_properties(fbc_warnings PROPERTIES EXPORT_NAME warnings)

install(TARGETS fbc ${FBC_PARTS} fbc_core fbc_warnings EXPORT fbcTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS fbc_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/fbc/fbc.h ${PROJECT_SOURCE_DIR}/include/fbc/FBC_dll.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/fbc)
foreach(dir codec framework config image)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/fbc
          FILES_MATCHING PATTERN "*.h")
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/data/fbc_registers.txt ${PROJECT_SOURCE_DIR}/data/sample_params.ini
              ${PROJECT_SOURCE_DIR}/data/random_settings.ini
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fbc)

install(EXPORT fbcTargets NAMESPACE fbc:: DESTINATION ${FBC_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/fbcConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/fbcConfig.cmake INSTALL_DESTINATION ${FBC_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/fbcConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/fbcConfig.cmake ${PROJECT_BINARY_DIR}/fbcConfigVersion.cmake
        DESTINATION ${FBC_CMAKE_DIR})

# fbc.pc finds the prefix from its own place, so a staged or relocated install works too.
file(RELATIVE_PATH FBC_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" FBC_PC_PREFIX "${FBC_PC_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/fbc.pc.in ${PROJECT_BINARY_DIR}/fbc.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/fbc.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# `make package` in the build tree (or `make package` at the top): a .deb and a .tar.gz. A
# project that includes this one packages itself.
if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(CPACK_PACKAGE_NAME fbc)
set(CPACK_PACKAGE_VENDOR "fbc")
set(CPACK_PACKAGE_CONTACT "fbc maintainers <fbc@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_GENERATOR "DEB;TGZ")
# The .deb installs under /usr; the .tar.gz holds a relocatable tree (bin/, include/, lib/, share/).
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/FbcCPackOptions.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
# The dynamic loader learns of the new library when the package installs or goes.
file(WRITE ${PROJECT_BINARY_DIR}/deb/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/deb/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
