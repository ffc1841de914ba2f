# A floor is one folder, one static library and one include path. A floor sees the headers of the
# floors that it links and no others, so that a wrong include fails to build.

option(REELSCAN_TESTS "Build the tests" ON)
option(REELSCAN_BENCH "Build the benchmarks" OFF)
option(REELSCAN_FUZZ "Build the fuzz targets (clang)" OFF)
set(REELSCAN_SANITIZE "" CACHE STRING "Sanitizers of every target, as for -fsanitize=")

find_package(Threads REQUIRED)

# Sources are named as in the tree, wherever that and the build lie: in diagnostics, and for a build
# that another machine can repeat.
file(RELATIVE_PATH up_to_sources ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "([^/])$" "\\1/" up_to_sources "${up_to_sources}")
set(reelscan_source_names -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${up_to_sources}= -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)

# What every target of the project is compiled and linked with.
function(reelscan_target target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                         -Wformat-security -Werror -fstack-protector-strong)
  target_compile_options(${target} PRIVATE ${reelscan_source_names})
  # A program starts without the libraries that nothing in it calls.
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now -Wl,--as-needed)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64")
    target_compile_options(${target} PRIVATE -fcf-protection=full)
  endif()
  if(REELSCAN_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  if(REELSCAN_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${REELSCAN_SANITIZE}
                           -fno-omit-frame-pointer -fno-sanitize-recover=all)
    if(REELSCAN_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # Instrumented code hides from it that a reader sets its argument.
      target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
    target_link_options(${target} PRIVATE -fsanitize=${REELSCAN_SANITIZE})
  elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
endfunction()

# reelscan_floor(NAME [USES library...]): the library of the sources in this folder.
function(reelscan_floor name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "USES")
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(NOT sources)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${arg_USES})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_USES} Threads::Threads)
  reelscan_target(${name})
endfunction()
