# Runs PROGRAM on FILE; it must print the model's name, the line that opens the file, and the missing key.
file(REMOVE ${FILE})
execute_process(COMMAND ${PROGRAM} ${FILE} OUTPUT_VARIABLE printed COMMAND_ERROR_IS_FATAL ANY)
set(wanted "Model-1\nopenOdb(r'${FILE}').models['Model-1']\nNo entry with key 'Model-2'\n")
if(NOT printed STREQUAL wanted)
  message(FATAL_ERROR "${PROGRAM} printed '${printed}', not '${wanted}'")
endif()
