# The only way to add a library, a test program, a benchmark or a tool to this tree.
#
# ddr_add_library(NAME cls FLOOR 7 PART_OF platform [FOLDER platform/cls]
#                 HEADERS a.h b.h [PRIVATE_HEADERS p.h] [SOURCES a.cpp ...]
#                 [PUBLIC dep ...] [PRIVATE dep ...]
#                 [EXTERNAL_PUBLIC target ...] [EXTERNAL_PRIVATE target ...])
#   One folder, one name prefix, one target: ddr_cls (alias ddr::cls). Dependencies are given by name.
#   PUBLIC dependencies are those that the headers use. Without SOURCES the library is header-only.
#   PART_OF says which shared library takes its objects and installs its HEADERS: platform, ddr or none.
#   Refused: an unknown argument; a dependency on the same or a higher floor; a library that was not
#   added; an installed library whose headers use one that is not installed, or a private header.
#   Every header is compiled alone, seeing what its users will see and no more.
#
# ddr_add_test(NAME cls SOURCES x_test.cpp ... DEPENDS cls ... [EXTERNAL target ...]
#              [DEFINITIONS A=1 ...] [ENVIRONMENT A=1 ...])
#   One GoogleTest program ddr_test_cls; each of its tests is a ctest of its own with label cls.
#
# ddr_add_benchmark(NAME btree SOURCES x_bench.cpp ... DEPENDS cow_containers ... [EXTERNAL target ...]
#                   [SMOKE_FILTER regex])
#   One Google Benchmark program ddr_bench_btree, and a ctest that runs the filtered part of it briefly.
#
# ddr_add_fuzzer(NAME file SOURCES x_fuzz.cpp ... DEPENDS rom ... [EXTERNAL target ...])
#   A libFuzzer program ddr_fuzz_file where DDR_FUZZERS is on, and a ctest that gives each input of the folder
#   corpus/file to the same function in a plain program, whatever the compiler.
#
# ddr_add_program(NAME ddr SOURCES main.cpp ... [EXTERNAL target ...] [UNINSTALLED])
#   A client of the shared library and the installed headers only; installed unless UNINSTALLED.
#
# ddr_add_shared_libraries()
#   libddr_platform and libddr from what was added so far, with their install rules.

include(GNUInstallDirs)

# The one library that others of floor 0 may stand on.
set(DDR_GROUND_LIBRARY os)

# Warnings are errors in our own code; the targets that use this are never exported.
add_library(ddr_warnings INTERFACE)
target_compile_options(
  ddr_warnings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Werror
            $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict> # gcc 12 sees overlaps in additions of texts that cannot be
            $<$<CXX_COMPILER_ID:Clang>:-Wdocumentation>)

# What every target of ours is compiled with, sanitizers included.
set(DDR_SANITIZE "" CACHE STRING "Sanitizers to build everything with, comma separated: address,undefined or thread")
add_library(ddr_options INTERFACE)
target_compile_features(ddr_options INTERFACE cxx_std_20)
if(DDR_SANITIZE)
  target_compile_options(ddr_options INTERFACE -fsanitize=${DDR_SANITIZE} -fno-sanitize-recover=all
                                               -fno-omit-frame-pointer)
  target_link_options(ddr_options INTERFACE -fsanitize=${DDR_SANITIZE})
endif()

# Every message names the call that is wrong, so that the reader needs no stack of CMake calls.
function(_ddr_refuse caller name text)
  message(FATAL_ERROR "${caller}(${name}): ${text}")
endfunction()

# Shared checks of parsed arguments: nothing unknown, nothing left empty.
macro(_ddr_check_arguments caller)
  if(arg_UNPARSED_ARGUMENTS)
    _ddr_refuse(${caller} "${arg_NAME}" "unknown argument '${arg_UNPARSED_ARGUMENTS}'")
  endif()
  if(arg_KEYWORDS_MISSING_VALUES)
    _ddr_refuse(${caller} "${arg_NAME}" "no value after '${arg_KEYWORDS_MISSING_VALUES}'")
  endif()
  foreach(required ${ARGN})
    if("${arg_${required}}" STREQUAL "")
      _ddr_refuse(${caller} "${arg_NAME}" "${required} is missing")
    endif()
  endforeach()
endmacro()

# Common properties of everything compiled here.
function(_ddr_set_up target)
  set_target_properties(
    ${target}
    PROPERTIES CXX_EXTENSIONS OFF
               CXX_VISIBILITY_PRESET hidden
               VISIBILITY_INLINES_HIDDEN ON
               POSITION_INDEPENDENT_CODE ON)
  target_link_libraries(${target} PRIVATE ddr_options ddr_warnings)
endfunction()

# One generated source per header; each includes its header twice, so that a missing guard shows too.
function(_ddr_compile_headers_alone target root)
  set(sources "")
  foreach(header ${ARGN})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${target}/${header}.cpp)
    set(text "#include \"${header}\"\n#include \"${header}\"\n")
    set(present "")
    if(EXISTS ${source})
      file(READ ${source} present)
    endif()
    if(NOT present STREQUAL text)
      file(WRITE ${source} "${text}")
    endif()
    list(APPEND sources ${source})
  endforeach()
  add_library(${target} OBJECT ${sources})
  _ddr_set_up(${target})
  target_include_directories(${target} PRIVATE ${root})
  target_compile_options(${target} PRIVATE -g0 -O0)
endfunction()

function(ddr_add_library)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME;FOLDER;FLOOR;PART_OF"
                        "HEADERS;PRIVATE_HEADERS;SOURCES;PUBLIC;PRIVATE;EXTERNAL_PUBLIC;EXTERNAL_PRIVATE")
  _ddr_check_arguments(ddr_add_library NAME FLOOR PART_OF HEADERS)
  set(name ${arg_NAME})
  set(target ddr_${name})
  if(NOT arg_FLOOR MATCHES "^[0-9]+$")
    _ddr_refuse(ddr_add_library ${name} "FLOOR '${arg_FLOOR}' is not a number")
  endif()
  if(NOT arg_PART_OF MATCHES "^(platform|ddr|none)$")
    _ddr_refuse(ddr_add_library ${name} "PART_OF '${arg_PART_OF}' is none of platform, ddr, none")
  endif()
  if(TARGET ${target})
    _ddr_refuse(ddr_add_library ${name} "a library of this name was added already")
  endif()
  set(root ${CMAKE_CURRENT_SOURCE_DIR})
  if(arg_FOLDER)
    cmake_path(ABSOLUTE_PATH arg_FOLDER BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE root)
  endif()
  foreach(file ${arg_HEADERS} ${arg_PRIVATE_HEADERS} ${arg_SOURCES})
    if(NOT EXISTS ${root}/${file})
      _ddr_refuse(ddr_add_library ${name} "there is no file '${file}' in ${root}")
    endif()
  endforeach()

  foreach(dependency ${arg_PUBLIC} ${arg_PRIVATE})
    if(NOT TARGET ddr_${dependency})
      _ddr_refuse(ddr_add_library ${name}
                  "it depends on '${dependency}', which is not a library of this tree or is added later")
    endif()
    get_target_property(floor ddr_${dependency} DDR_FLOOR)
    if(NOT floor LESS arg_FLOOR AND NOT (arg_FLOOR EQUAL 0 AND floor EQUAL 0 AND dependency STREQUAL
                                                                                DDR_GROUND_LIBRARY))
      _ddr_refuse(ddr_add_library ${name}
                  "it is on floor ${arg_FLOOR} and may not depend on '${dependency}' on floor ${floor}")
    endif()
    get_target_property(part ddr_${dependency} DDR_PART_OF)
    if(arg_PART_OF STREQUAL "platform" AND part STREQUAL "ddr")
      _ddr_refuse(ddr_add_library ${name} "it is part of platform and may not depend on '${dependency}' of ddr")
    endif()
    if(NOT arg_PART_OF STREQUAL "none" AND part STREQUAL "none" AND dependency IN_LIST arg_PUBLIC)
      _ddr_refuse(ddr_add_library ${name}
                  "it is installed, but its headers use '${dependency}', which is not installed")
    endif()
  endforeach()
  if(NOT arg_PART_OF STREQUAL "none" AND arg_PRIVATE_HEADERS)
    foreach(header ${arg_HEADERS})
      file(STRINGS ${root}/${header} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
      foreach(line ${includes})
        string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*$" "\\1" included "${line}")
        if(included IN_LIST arg_PRIVATE_HEADERS)
          _ddr_refuse(ddr_add_library ${name}
                      "the installed header ${header} uses the private header ${included}")
        endif()
      endforeach()
    endforeach()
  endif()

  list(TRANSFORM arg_PUBLIC PREPEND ddr_ OUTPUT_VARIABLE public_targets)
  list(TRANSFORM arg_PRIVATE PREPEND ddr_ OUTPUT_VARIABLE private_targets)
  if(arg_SOURCES)
    list(TRANSFORM arg_SOURCES PREPEND ${root}/)
    add_library(${target} STATIC ${arg_SOURCES})
    _ddr_set_up(${target})
    target_include_directories(${target} PUBLIC ${root})
    target_link_libraries(
      ${target}
      PUBLIC ${public_targets} ${arg_EXTERNAL_PUBLIC}
      PRIVATE ${private_targets} ${arg_EXTERNAL_PRIVATE})
    if(NOT arg_PART_OF STREQUAL "none")
      set_property(GLOBAL APPEND PROPERTY DDR_OBJECTS_OF_${arg_PART_OF} ${target})
    endif()
  else()
    if(arg_PRIVATE OR arg_EXTERNAL_PRIVATE OR arg_PRIVATE_HEADERS)
      _ddr_refuse(ddr_add_library ${name} "a header-only library has nothing private")
    endif()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${root})
    target_link_libraries(${target} INTERFACE ddr_options ${public_targets} ${arg_EXTERNAL_PUBLIC})
  endif()
  if(NOT name MATCHES "^(ddr|platform)$") # these two names are the shared libraries'
    add_library(ddr::${name} ALIAS ${target})
  endif()
  set_target_properties(${target} PROPERTIES DDR_FLOOR ${arg_FLOOR} DDR_PART_OF ${arg_PART_OF})

  _ddr_compile_headers_alone(${target}_headers ${root} ${arg_HEADERS})
  target_link_libraries(${target}_headers PRIVATE ${public_targets} ${arg_EXTERNAL_PUBLIC})
  if(arg_PRIVATE_HEADERS)
    _ddr_compile_headers_alone(${target}_private_headers ${root} ${arg_PRIVATE_HEADERS})
    target_link_libraries(${target}_private_headers PRIVATE ${public_targets} ${private_targets}
                                                            ${arg_EXTERNAL_PUBLIC} ${arg_EXTERNAL_PRIVATE})
  endif()

  if(NOT arg_PART_OF STREQUAL "none")
    foreach(header ${arg_HEADERS})
      cmake_path(GET header FILENAME file_name)
      get_property(installed GLOBAL PROPERTY DDR_INSTALLED_HEADERS)
      if(file_name IN_LIST installed)
        _ddr_refuse(ddr_add_library ${name} "a header named ${file_name} is installed already")
      endif()
      set_property(GLOBAL APPEND PROPERTY DDR_INSTALLED_HEADERS ${file_name})
      set_property(GLOBAL APPEND PROPERTY DDR_INSTALLED_HEADER_PATHS ${root}/${header})
    endforeach()
  endif()
endfunction()

# Refuses a dependency that is not a library of this tree.
function(_ddr_require_dependencies caller name)
  foreach(dependency ${ARGN})
    if(NOT TARGET ddr_${dependency})
      _ddr_refuse(${caller} ${name} "it depends on '${dependency}', which is not a library of this tree")
    endif()
  endforeach()
endfunction()

# What every program under test needs in its environment in this build.
function(_ddr_test_environment result)
  set(environment "")
  set(suppressions ${PROJECT_SOURCE_DIR}/tests/leak-suppressions.txt)
  if(DDR_SANITIZE MATCHES "address" AND EXISTS ${suppressions})
    set(environment "LSAN_OPTIONS=suppressions=${suppressions}:print_suppressions=0")
  endif()
  set(${result} ${environment} PARENT_SCOPE)
endfunction()

function(ddr_add_test)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME" "SOURCES;DEPENDS;EXTERNAL;DEFINITIONS;ENVIRONMENT")
  _ddr_check_arguments(ddr_add_test NAME SOURCES)
  _ddr_require_dependencies(ddr_add_test ${arg_NAME} ${arg_DEPENDS})
  find_package(GTest REQUIRED)
  include(GoogleTest)
  set(target ddr_test_${arg_NAME})
  add_executable(${target} ${arg_SOURCES})
  _ddr_set_up(${target})
  list(TRANSFORM arg_DEPENDS PREPEND ddr_)
  target_link_libraries(${target} PRIVATE ${arg_DEPENDS} ${arg_EXTERNAL} GTest::gmock GTest::gtest_main)
  target_compile_definitions(${target} PRIVATE ${arg_DEFINITIONS})
  gtest_discover_tests(
    ${target}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 120
    PROPERTIES LABELS ${arg_NAME} TIMEOUT 180)
  # gtest_discover_tests takes no property that is a list, so the environment is set once they are found.
  _ddr_test_environment(environment)
  set(environment_file ${CMAKE_CURRENT_BINARY_DIR}/${target}_environment.cmake)
  file(
    WRITE ${environment_file}
    "set_tests_properties(\${${target}_TESTS} PROPERTIES ENVIRONMENT \"${arg_ENVIRONMENT};${environment}\")\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${environment_file})
endfunction()

function(ddr_add_benchmark)
  if(NOT DDR_BUILD_BENCHMARKS)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME;SMOKE_FILTER" "SOURCES;DEPENDS;EXTERNAL")
  _ddr_check_arguments(ddr_add_benchmark NAME SOURCES)
  _ddr_require_dependencies(ddr_add_benchmark ${arg_NAME} ${arg_DEPENDS})
  if("${arg_SMOKE_FILTER}" STREQUAL "")
    set(arg_SMOKE_FILTER "all")
  endif()
  find_package(benchmark REQUIRED)
  set(target ddr_bench_${arg_NAME})
  add_executable(${target} ${arg_SOURCES})
  _ddr_set_up(${target})
  list(TRANSFORM arg_DEPENDS PREPEND ddr_)
  target_link_libraries(${target} PRIVATE ${arg_DEPENDS} ${arg_EXTERNAL} benchmark::benchmark_main)
  if(BUILD_TESTING)
    add_test(NAME benchmark.${arg_NAME}.smoke
             COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:${target}> -DFILTER=${arg_SMOKE_FILTER} -P
                     ${PROJECT_SOURCE_DIR}/cmake/RunBenchmarkBriefly.cmake)
    _ddr_test_environment(environment)
    set_tests_properties(benchmark.${arg_NAME}.smoke PROPERTIES LABELS benchmark TIMEOUT 180 ENVIRONMENT
                                                                "${environment}")
  endif()
endfunction()

option(DDR_FUZZERS "Build the libFuzzer programs; wants clang++ and DDR_SANITIZE with fuzzer-no-link" OFF)

function(ddr_add_fuzzer)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "NAME" "SOURCES;DEPENDS;EXTERNAL")
  _ddr_check_arguments(ddr_add_fuzzer NAME SOURCES)
  _ddr_require_dependencies(ddr_add_fuzzer ${arg_NAME} ${arg_DEPENDS})
  list(TRANSFORM arg_DEPENDS PREPEND ddr_)
  add_library(ddr_fuzz_${arg_NAME}_target OBJECT ${arg_SOURCES})
  set(replay ddr_replay_${arg_NAME})
  add_executable(${replay} ${CMAKE_CURRENT_SOURCE_DIR}/replay_main.cpp)
  set(programs ${replay})
  if(DDR_FUZZERS)
    add_executable(ddr_fuzz_${arg_NAME} ${CMAKE_CURRENT_SOURCE_DIR}/fuzz_options.cpp)
    target_link_options(ddr_fuzz_${arg_NAME} PRIVATE -fsanitize=fuzzer)
    list(APPEND programs ddr_fuzz_${arg_NAME})
  endif()
  foreach(target ddr_fuzz_${arg_NAME}_target ${programs})
    _ddr_set_up(${target})
    target_link_libraries(${target} PRIVATE ${arg_DEPENDS} ${arg_EXTERNAL})
  endforeach()
  foreach(target ${programs})
    target_link_libraries(${target} PRIVATE ddr_fuzz_${arg_NAME}_target)
  endforeach()
  if(BUILD_TESTING)
    add_test(NAME fuzz.${arg_NAME}.replay COMMAND ${replay} ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${arg_NAME})
    _ddr_test_environment(environment)
    set_tests_properties(fuzz.${arg_NAME}.replay PROPERTIES LABELS fuzz TIMEOUT 180 ENVIRONMENT "${environment}")
  endif()
endfunction()

function(ddr_add_program)
  cmake_parse_arguments(PARSE_ARGV 0 arg "UNINSTALLED" "NAME" "SOURCES;EXTERNAL")
  _ddr_check_arguments(ddr_add_program NAME SOURCES)
  set(target ddr_program_${arg_NAME})
  add_executable(${target} ${arg_SOURCES})
  _ddr_set_up(${target})
  target_link_libraries(${target} PRIVATE ddr::ddr ${arg_EXTERNAL})
  target_compile_definitions(${target} PRIVATE DDR_VERSION="${PROJECT_VERSION}")
  file(RELATIVE_PATH library_folder /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(
    ${target}
    PROPERTIES OUTPUT_NAME ${arg_NAME}
               RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin
               INSTALL_RPATH "$ORIGIN/${library_folder}")
  if(NOT arg_UNINSTALLED)
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endfunction()

# One shared library from the objects of the folder libraries that are part of it.
function(_ddr_add_shared_library target part)
  get_property(folders GLOBAL PROPERTY DDR_OBJECTS_OF_${part})
  set(objects "")
  set(externals "")
  foreach(folder ${folders})
    list(APPEND objects $<TARGET_OBJECTS:${folder}>)
    # The code that is linked in brings what it needs from outside; our own folders are inside already.
    get_target_property(needs ${folder} LINK_LIBRARIES)
    foreach(need ${needs})
      if(NOT need MATCHES "^ddr_")
        list(APPEND externals ${need})
      endif()
    endforeach()
  endforeach()
  list(REMOVE_DUPLICATES externals)
  add_library(${target} SHARED ${objects})
  _ddr_set_up(${target})
  target_link_libraries(${target} PRIVATE ${externals})
  if(NOT DDR_SANITIZE) # sanitizer run times are linked into programs only
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(
    ${target}
    PROPERTIES LINKER_LANGUAGE CXX
               EXPORT_NAME ${part}
               LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
               INSTALL_RPATH $ORIGIN
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  target_compile_features(${target} INTERFACE cxx_std_20)
  target_include_directories(
    ${target} INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include/ddr>
                        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ddr>)
  add_library(ddr::${part} ALIAS ${target})
  install(TARGETS ${target} EXPORT ddr-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endfunction()

function(ddr_add_shared_libraries)
  # Clients inside the tree see the installed headers and no others: links to exactly these.
  file(REMOVE_RECURSE ${PROJECT_BINARY_DIR}/include/ddr)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include/ddr)
  get_property(headers GLOBAL PROPERTY DDR_INSTALLED_HEADER_PATHS)
  foreach(header ${headers})
    cmake_path(GET header FILENAME file_name)
    file(CREATE_LINK ${header} ${PROJECT_BINARY_DIR}/include/ddr/${file_name} SYMBOLIC)
  endforeach()
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ddr)

  get_property(platform GLOBAL PROPERTY DDR_OBJECTS_OF_platform)
  get_property(module GLOBAL PROPERTY DDR_OBJECTS_OF_ddr)
  if(platform)
    _ddr_add_shared_library(ddr_platform platform)
  endif()
  if(NOT platform OR NOT module)
    return()
  endif()
  _ddr_add_shared_library(ddr ddr)
  target_link_libraries(ddr PUBLIC ddr_platform)

  include(CMakePackageConfigHelpers)
  set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ddr)
  configure_package_config_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ddr-config.cmake.in
                                ${PROJECT_BINARY_DIR}/ddr-config.cmake INSTALL_DESTINATION ${package_folder})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/ddr-config-version.cmake
                                   COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/ddr-config.cmake ${PROJECT_BINARY_DIR}/ddr-config-version.cmake
          DESTINATION ${package_folder})
  install(
    EXPORT ddr-targets
    NAMESPACE ddr::
    DESTINATION ${package_folder})
endfunction()
