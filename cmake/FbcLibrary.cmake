# libfbc.so from the parts' object files: every part archive is compiled position-independent
# with hidden visibility, and the shared library links those same objects (no second
# compilation, no whole-archive link). Sources a part gains land in both. The fast path's
# checker is a test tool and stays out.
set(FBC_PARTS fbc_config fbc_image fbc_framework fbc_codec)
set_target_properties(${FBC_PARTS} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

add_library(fbc SHARED)
foreach(part ${FBC_PARTS})
  target_sources(fbc PRIVATE "$<FILTER:$<TARGET_OBJECTS:${part}>,EXCLUDE,/FastCheck\\.cpp\\.o$>")
  add_dependencies(fbc ${part})
endforeach()
set(FBC_VERSION_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/libfbc.map)
target_link_options(fbc PRIVATE "LINKER:--version-script=${FBC_VERSION_SCRIPT}")
# Every symbol the objects need resolves at link time (not with sanitizer runtimes, which
# resolve theirs at load time).
if(NOT FBC_SANITIZE AND NOT FBC_FUZZ)
  target_link_options(fbc PRIVATE "LINKER:--no-undefined")
endif()
set_property(TARGET fbc APPEND PROPERTY LINK_DEPENDS ${FBC_VERSION_SCRIPT})
target_include_directories(fbc PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(fbc PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                     CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden)
add_library(fbc::fbc ALIAS fbc)
