# The version of the programs is that of the databases with its digits apart: 4150 is 4.1.50. It stands in
# package/layout.h alone; scripts/check-release holds the changelog and the documents against it.

set(layout ${CMAKE_CURRENT_LIST_DIR}/../package/layout.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${layout})
file(STRINGS ${layout} line REGEX "kCurrentVersion = [0-9]+")
if(NOT line MATCHES "kCurrentVersion = ([0-9])([0-9])([0-9])([0-9])")
  message(FATAL_ERROR "no kCurrentVersion of four digits in package/layout.h")
endif()
math(EXPR patch "${CMAKE_MATCH_3} * 10 + ${CMAKE_MATCH_4}")
set(UPDATER_VERSION ${CMAKE_MATCH_1}.${CMAKE_MATCH_2}.${patch})
