# Installs BUILD into a prefix under WORK, moves that prefix, and configures, builds and runs PROJECT
# against the moved one: nothing may lead back to the build or to the place of the first installation.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command}\nended with ${status}:\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/first)
file(RENAME ${WORK}/first ${WORK}/prefix)

file(GLOB_RECURSE package_files ${WORK}/prefix/*.cmake)
foreach(file ${package_files})
  file(READ ${file} text)
  string(FIND "${text}" "${BUILD}" position)
  if(NOT position EQUAL -1)
    message(FATAL_ERROR "${file} names the build folder")
  endif()
endforeach()

set(flags "")
if(SANITIZE)
  set(flags -DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZE})
endif()
run(${CMAKE_COMMAND} -S ${PROJECT} -B ${WORK}/build -G Ninja -DCMAKE_CXX_COMPILER=${COMPILER}
    -DCMAKE_PREFIX_PATH=${WORK}/prefix -DDDR_EXPECTED_VERSION=${VERSION} ${flags})
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/build/consumer ${WORK}/consumer.ddr)
