# The database output reaches its databases through ODBC: unixODBC on Linux, odbc32 on Windows.
if(WIN32)
  target_link_libraries(vt_action_database PUBLIC odbc32)
else()
  pkg_check_modules(ODBC REQUIRED IMPORTED_TARGET odbc)
  target_link_libraries(vt_action_database PUBLIC PkgConfig::ODBC)
endif()
