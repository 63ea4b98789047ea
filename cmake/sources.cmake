# One static library per layer, and one per input and per action folder, each linking only the
# layers below it: platform < base < model < engine < sources, actions < service. The socket
# wrappers (base/net/) sit in the base layer but are a library of their own, for the inputs and
# actions that use them.
# scripts/check_layers.sh checks the includes against the same order. Sources are gathered by
# folder, so adding a file needs no edit here.

function(vt_library name)  # vt_library(NAME GLOB... DEPENDS lib...)
  cmake_parse_arguments(arg "" "" "GLOBS;DEPENDS" ${ARGN})
  file(GLOB srcs CONFIGURE_DEPENDS ${arg_GLOBS})
  list(FILTER srcs EXCLUDE REGEX ".*/main\\.cpp$")
  add_library(${name} STATIC ${srcs})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${arg_DEPENDS})
endfunction()

set(S ${CMAKE_SOURCE_DIR}/src)
if(WIN32)
  set(VT_OS_FOLDER win32)
else()
  set(VT_OS_FOLDER posix)
endif()
vt_library(vt_platform GLOBS ${S}/platform/*.cpp ${S}/platform/${VT_OS_FOLDER}/*.cpp
           DEPENDS ${VT_PLATFORM_LIBS})
if(WIN32)
  target_compile_definitions(vt_platform PUBLIC WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601)
endif()
vt_library(vt_base GLOBS ${S}/base/*.cpp DEPENDS vt_platform)
vt_library(vt_net GLOBS ${S}/base/net/*.cpp DEPENDS vt_base)
vt_library(vt_model GLOBS ${S}/model/*.cpp DEPENDS vt_base)
vt_library(vt_engine GLOBS ${S}/engine/*.cpp DEPENDS vt_model)
vt_library(vt_sources GLOBS ${S}/sources/*.cpp DEPENDS vt_engine)

# Every folder below sources/ and actions/ is one input or one action.
set(VT_PLUGINS)
foreach(kind sources actions)
  file(GLOB folders LIST_DIRECTORIES true ${S}/${kind}/*)
  foreach(folder ${folders})
    if(IS_DIRECTORY ${folder})
      get_filename_component(leaf ${folder} NAME)
      if(kind STREQUAL sources)
        vt_library(vt_source_${leaf} GLOBS ${folder}/*.cpp DEPENDS vt_sources vt_net)
        list(APPEND VT_PLUGINS vt_source_${leaf})
      else()
        vt_library(vt_action_${leaf} GLOBS ${folder}/*.cpp DEPENDS vt_engine vt_net)
        list(APPEND VT_PLUGINS vt_action_${leaf})
      endif()
      # A folder that needs a library of its own (Net-SNMP, ODBC, libevt ...) links it in
      # cmake/folders/<kind>_<leaf>.cmake.
      include(${CMAKE_SOURCE_DIR}/cmake/folders/${kind}_${leaf}.cmake OPTIONAL)
    endif()
  endforeach()
endforeach()

vt_library(vt_service GLOBS ${S}/service/*.cpp DEPENDS ${VT_PLUGINS})
# Everything the agent is made of, for the program, the tests and the benchmarks.
add_library(vtcore INTERFACE)
target_link_libraries(vtcore INTERFACE vt_service)

add_executable(vtagent ${S}/service/main.cpp)
target_link_libraries(vtagent PRIVATE vt_service ${VT_ALLOCATOR_LIBS})
if(WIN32 AND EXISTS ${S}/platform/win32/resources/messages.mc)
  include(cmake/message_table.cmake)
endif()

file(GLOB VT_VTREG_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/vtreg/*.cpp)
list(FILTER VT_VTREG_SOURCES EXCLUDE REGEX ".*/main\\.cpp$")
add_library(vtreglib STATIC ${VT_VTREG_SOURCES})
target_include_directories(vtreglib PUBLIC ${CMAKE_SOURCE_DIR}/tools)
target_link_libraries(vtreglib PUBLIC vt_base)
add_executable(vtreg ${CMAKE_SOURCE_DIR}/tools/vtreg/main.cpp)
target_link_libraries(vtreg PRIVATE vtreglib)
