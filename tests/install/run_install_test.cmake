# Installs the SDK into a fresh prefix and builds and runs a consumer against it,
# once through the CMake package and once through pkg-config.
# Expects BUILD_DIR, SOURCE_DIR, WORK_DIR, CXX and EXAMPLES.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${result}): ${command}\n${output}")
  endif()
  set(last_output "${output}" PARENT_SCOPE)
endfunction()

function(expect_listing label)
  if(NOT last_output MATCHES "com::example::shop::Cart::addItem")
    message(FATAL_ERROR "${label}: the consumer did not list the example methods:\n${last_output}")
  endif()
  if(NOT last_output MATCHES "[1-9][0-9]* symbols, [1-9][0-9]* processes")
    message(FATAL_ERROR "${label}: unexpected summary:\n${last_output}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${EXAMPLES} ${WORK_DIR}/traces)
set(traces ${WORK_DIR}/traces/session-1 ${WORK_DIR}/traces/session-2)

# The CMake package.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install -B ${WORK_DIR}/cmake-consumer
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-consumer)
run(${WORK_DIR}/cmake-consumer/consumer ${traces})
expect_listing("find_package")

# pkg-config, with nothing but its flags.
file(GLOB_RECURSE pc_files ${prefix}/*/korvane-jitreader.pc)
list(LENGTH pc_files pc_count)
if(NOT pc_count EQUAL 1)
  message(FATAL_ERROR "expected one installed korvane-jitreader.pc, found: ${pc_files}")
endif()
get_filename_component(pc_dir ${pc_files} DIRECTORY)
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} pkg-config --cflags --libs korvane-jitreader)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 -Wall -Wextra -Werror ${SOURCE_DIR}/tests/install/consumer.cpp -o ${WORK_DIR}/pc-consumer
    ${flags})
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} pkg-config --variable=libdir korvane-jitreader)
string(STRIP "${last_output}" libdir)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${WORK_DIR}/pc-consumer ${traces})
expect_listing("pkg-config")

# The consumer needs the shared library and nothing of the project's internals.
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ldd ${WORK_DIR}/pc-consumer)
if(NOT last_output MATCHES "libkorvane_jitreader\\.so[^ ]* => ${libdir}")
  message(FATAL_ERROR "the consumer does not load the installed library:\n${last_output}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
