# Runs PROGRAM, a benchmark, for a moment on what FILTER selects; fails unless it measured something.
# The program alone would not do: it exits with 0 when nothing matches and when a benchmark gives up.
execute_process(
  COMMAND ${PROGRAM} --benchmark_min_time=0.001 --benchmark_filter=${FILTER} --benchmark_format=json
  OUTPUT_VARIABLE report
  RESULT_VARIABLE status)
message("${report}")
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ended with ${status}")
endif()
if(report MATCHES "\"error_occurred\": true")
  message(FATAL_ERROR "a benchmark gave up")
endif()
if(NOT report MATCHES "\"real_time\":")
  message(FATAL_ERROR "no benchmark matches ${FILTER}")
endif()
