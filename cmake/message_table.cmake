# The message table of the agent's events: windmc turns messages.mc into a resource script and
# a binary table, windres compiles both into an object linked into vtagent.exe (the executable
# is the event source's "EventMessageFile").
set(VT_MC_SOURCE ${CMAKE_SOURCE_DIR}/src/platform/win32/resources/messages.mc)
set(VT_MC_DIR ${CMAKE_BINARY_DIR}/message_table)
add_custom_command(
  OUTPUT ${VT_MC_DIR}/messages.rc ${VT_MC_DIR}/messages.h ${VT_MC_DIR}/MSG00409.bin
  COMMAND ${CMAKE_COMMAND} -E make_directory ${VT_MC_DIR}
  COMMAND ${CMAKE_MC_COMPILER} -r ${VT_MC_DIR} -h ${VT_MC_DIR} ${VT_MC_SOURCE}
  DEPENDS ${VT_MC_SOURCE}
  COMMENT "Compiling the event message table"
  VERBATIM)
add_custom_command(
  OUTPUT ${VT_MC_DIR}/messages_res.o
  COMMAND ${CMAKE_RC_COMPILER} --input-format=rc --output-format=coff -I ${VT_MC_DIR}
          -i messages.rc -o messages_res.o
  WORKING_DIRECTORY ${VT_MC_DIR}
  DEPENDS ${VT_MC_DIR}/messages.rc ${VT_MC_DIR}/MSG00409.bin
  VERBATIM)
target_sources(vtagent PRIVATE ${VT_MC_DIR}/messages_res.o)
