# The three kinds of targets that this project has, so that the list of each folder stays short.

set(UPDATER_WARNINGS
    -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wmissing-declarations -Wcast-qual -Wcast-align
    -Wdouble-promotion -Wundef -Wunused -Wextra-semi -Wzero-as-null-pointer-constant -Wredundant-decls)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # -Wrestrict and -Wnull-dereference of g++ 12 see bugs in the optimised std::string and std::map, which are
  # none: the first is off, the second left to clang.
  list(APPEND UPDATER_WARNINGS -Wsuggest-override -Wduplicated-cond -Wduplicated-branches -Wlogical-op
                               -Wno-restrict)
else()
  list(APPEND UPDATER_WARNINGS -Winconsistent-missing-override -Wnull-dereference)
endif()
if(UPDATER_WERROR)
  list(APPEND UPDATER_WARNINGS -Werror)
endif()

add_library(updater-flags INTERFACE)
target_compile_options(updater-flags INTERFACE ${UPDATER_WARNINGS})
target_include_directories(updater-flags INTERFACE ${CMAKE_SOURCE_DIR})
# Files of more than 2 GiB and times after 2038 have to be asked for where a long has 32 bits. Elsewhere that would
# only give calls other names than those which tests/faults stands in for.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(updater-flags INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
if(UPDATER_SANITIZE)
  target_compile_options(updater-flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
  target_link_options(updater-flags INTERFACE -fsanitize=address,undefined)
endif()
if(UPDATER_FUZZ)
  target_compile_options(updater-flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(UPDATER_HARDENED)
  target_compile_options(updater-flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS
                                                 -fstack-protector-strong -fstack-clash-protection -fPIE)
  target_link_options(updater-flags INTERFACE -pie -Wl,-z,relro,-z,now)
endif()

# updater_library(<name> SOURCES <file>... [ALONE <file>...] [LINK <target>...])
#
# The headers take most of the time of most files. Where CMAKE_UNITY_BUILD is set, many files of a library are therefore
# compiled as one, but for those ALONE, which use names of their own in other ways than other files do.
function(updater_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;ALONE;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  set_source_files_properties(${ARG_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  target_link_libraries(${name} PUBLIC updater-flags ${ARG_LINK})
endfunction()

# updater_program(<name> SOURCES <file>... [LINK <target>...])
function(updater_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE updater-flags ${ARG_LINK})
endfunction()

# updater_not_optimised(<file>...): for what only tests use. To optimise their matchers takes longer than to build all
# that they test.
function(updater_not_optimised)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "-O0;-U_FORTIFY_SOURCE" SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

# updater_test(<name> SOURCES <file>... [LINK <target>...]): a GoogleTest program, one ctest entry a case. Nothing
# without BUILD_TESTING.
if(BUILD_TESTING)
  find_package(GTest REQUIRED)
  include(GoogleTest)
  set(test_timeout 300)
  if(CMAKE_CROSSCOMPILING) # an emulator takes its time
    set(test_timeout 1800)
  endif()
endif()
function(updater_test name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  updater_not_optimised(${ARG_SOURCES})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE updater-flags ${ARG_LINK} GTest::gmock GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${test_timeout})
endfunction()
