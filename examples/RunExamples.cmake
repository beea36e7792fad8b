# Runs WRITER and then READER on FILE; the reader must print the one model that the writer saved.
file(REMOVE ${FILE})
execute_process(COMMAND ${WRITER} ${FILE} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${READER} ${FILE} OUTPUT_VARIABLE models COMMAND_ERROR_IS_FATAL ANY)
if(NOT models STREQUAL "Model-1\n")
  message(FATAL_ERROR "${READER} printed '${models}'")
endif()
