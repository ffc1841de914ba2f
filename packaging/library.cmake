# libqvrmmdb: the floors below the report as one archive, with the headers that its one header needs.

# The header and all that it includes, by bare name, of the floors' folders.
function(header_closure first folders result)
  set(waiting ${first})
  set(known)
  while(waiting)
    list(POP_FRONT waiting name)
    foreach(folder ${folders})
      set(path ${PROJECT_SOURCE_DIR}/${folder}/${name})
      if(EXISTS ${path} AND NOT path IN_LIST known)
        list(APPEND known ${path})
        file(STRINGS ${path} lines REGEX "^#include \"")
        foreach(line ${lines})
          string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included ${line})
          list(APPEND waiting ${included})
        endforeach()
      endif()
    endforeach()
  endwhile()
  set(${result} ${known} PARENT_SCOPE)
endfunction()

find_package(OpenSSL REQUIRED)
find_package(SQLite3 REQUIRED)
header_closure(qvrmmdb.h "liblocal;rpc/lib;qvr/lib" headers)
add_library(qvrmmdb STATIC $<TARGET_OBJECTS:liblocal> $<TARGET_OBJECTS:qvrrpc> $<TARGET_OBJECTS:qvrlib>)
set_target_properties(qvrmmdb PROPERTIES LINKER_LANGUAGE CXX)
target_compile_features(qvrmmdb INTERFACE cxx_std_20)
target_include_directories(qvrmmdb INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(qvrmmdb PUBLIC OpenSSL::SSL OpenSSL::Crypto SQLite::SQLite3 Threads::Threads)
if(REELSCAN_SANITIZE)
  target_link_options(qvrmmdb INTERFACE -fsanitize=${REELSCAN_SANITIZE})
  set(PC_SANITIZE " -fsanitize=${REELSCAN_SANITIZE}")
endif()

set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qvrmmdb)
file(RELATIVE_PATH PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(qvrmmdb.pc.in qvrmmdb.pc @ONLY)
include(CMakePackageConfigHelpers)
configure_package_config_file(qvrmmdbConfig.cmake.in qvrmmdbConfig.cmake INSTALL_DESTINATION ${cmake_dir})
write_basic_package_version_file(qvrmmdbConfigVersion.cmake COMPATIBILITY SameMinorVersion)

install(TARGETS qvrmmdb EXPORT qvrmmdb ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(EXPORT qvrmmdb NAMESPACE qvrmmdb:: FILE qvrmmdbTargets.cmake DESTINATION ${cmake_dir}
        COMPONENT development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qvrmmdbConfig.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/qvrmmdbConfigVersion.cmake
        DESTINATION ${cmake_dir} COMPONENT development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qvrmmdb.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qvrmmdb COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/docs/examples/list_savesets.cpp
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqvrmmdb-dev/examples COMPONENT development)
