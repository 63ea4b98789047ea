# Sources are gathered by folder so that adding a file needs no edit here: every .cpp under
# src/ belongs to the core library, except the program entry points and the platform
# implementations of the other operating system.
file(GLOB_RECURSE VT_CORE_SOURCES CONFIGURE_DEPENDS
     ${CMAKE_SOURCE_DIR}/src/service/*.cpp
     ${CMAKE_SOURCE_DIR}/src/model/*.cpp
     ${CMAKE_SOURCE_DIR}/src/engine/*.cpp
     ${CMAKE_SOURCE_DIR}/src/sources/*.cpp
     ${CMAKE_SOURCE_DIR}/src/actions/*.cpp)
list(FILTER VT_CORE_SOURCES EXCLUDE REGEX ".*/main\\.cpp$")
file(GLOB VT_PLATFORM_COMMON CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/platform/*.cpp)
if(WIN32)
  file(GLOB_RECURSE VT_PLATFORM_OS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/platform/win32/*.cpp)
else()
  file(GLOB_RECURSE VT_PLATFORM_OS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/platform/posix/*.cpp)
endif()

add_library(vtcore STATIC ${VT_CORE_SOURCES} ${VT_PLATFORM_COMMON} ${VT_PLATFORM_OS})
target_include_directories(vtcore PUBLIC ${CMAKE_SOURCE_DIR}/src)
target_link_libraries(vtcore PUBLIC ${VT_PLATFORM_LIBS})
if(WIN32)
  target_compile_definitions(vtcore PUBLIC WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601)
endif()

add_executable(vtagent ${CMAKE_SOURCE_DIR}/src/service/main.cpp)
target_link_libraries(vtagent PRIVATE vtcore ${VT_ALLOCATOR_LIBS})
if(WIN32 AND EXISTS ${CMAKE_SOURCE_DIR}/src/platform/win32/resources/messages.mc)
  include(cmake/message_table.cmake)
endif()

file(GLOB VT_VTREG_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/vtreg/*.cpp)
list(FILTER VT_VTREG_SOURCES EXCLUDE REGEX ".*/main\\.cpp$")
add_library(vtreglib STATIC ${VT_VTREG_SOURCES})
target_include_directories(vtreglib PUBLIC ${CMAKE_SOURCE_DIR}/tools)
target_link_libraries(vtreglib PUBLIC vtcore)
add_executable(vtreg ${CMAKE_SOURCE_DIR}/tools/vtreg/main.cpp)
target_link_libraries(vtreg PRIVATE vtreglib)
