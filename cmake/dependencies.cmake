# Third-party libraries, all from Debian packages (scripts/install_deps.sh installs them).
if(WIN32)
  # zlib from libz-mingw-w64-dev; the system facilities come with mingw-w64 itself.
  find_library(ZLIB_LIB NAMES libz.a z REQUIRED)
  set(VT_PLATFORM_LIBS ${ZLIB_LIB} advapi32 ws2_32 iphlpapi ole32 rpcrt4 userenv netapi32 winmm crypt32 odbc32)
  # GoogleTest is built from the Debian source package for the Windows build.
  set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(VT_GTEST_LIBS GTest::gtest GTest::gmock)
  set(VT_GTEST_MAIN GTest::gtest_main)
else()
  find_package(PkgConfig REQUIRED)
  find_package(ZLIB REQUIRED)
  find_package(SQLite3 REQUIRED)
  pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
  find_package(Threads REQUIRED)
  find_package(OpenSSL REQUIRED)
  pkg_check_modules(ALSA REQUIRED IMPORTED_TARGET alsa)
  pkg_check_modules(LIBEVT REQUIRED IMPORTED_TARGET libevt)
  pkg_check_modules(ODBC REQUIRED IMPORTED_TARGET odbc)
  pkg_check_modules(NETSNMP REQUIRED IMPORTED_TARGET netsnmp)
  set(VT_PLATFORM_LIBS ZLIB::ZLIB SQLite::SQLite3 PkgConfig::SYSTEMD OpenSSL::SSL OpenSSL::Crypto
      PkgConfig::ALSA PkgConfig::LIBEVT PkgConfig::ODBC PkgConfig::NETSNMP Threads::Threads)
  find_package(GTest REQUIRED)
  set(VT_GTEST_LIBS GTest::gtest GTest::gmock)
  set(VT_GTEST_MAIN GTest::gtest_main)
  # The agent allocates every event on an input's thread and frees it on a worker. The C
  # library's allocator serialises such frees on the allocating thread's arena lock, which cost
  # more than all the rest of the syslog path; jemalloc hands them back without contention.
  # Sanitizer builds keep their own allocator.
  if(NOT VT_FUZZ AND NOT VT_TSAN)
    find_library(JEMALLOC_LIB NAMES jemalloc REQUIRED)
    set(VT_ALLOCATOR_LIBS ${JEMALLOC_LIB})
  endif()
endif()
