# Installs the build into a folder of its own, builds the outside project against it, and runs that on an archive.

file(REMOVE_RECURSE "${WORK}")
set(prefix "${WORK}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${result}:\n${output}")
  endif()
endfunction()

run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${prefix}")
string(REPLACE ";" "\\;" prefix_path "${prefix};${PREFIX_PATH}")
run("${CMAKE_COMMAND}" -S "${SOURCE}/tests/project/consumer" -B "${WORK}/build" -G "${GENERATOR}"
  "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
  "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
  "-DCMAKE_PREFIX_PATH=${prefix_path}"
  "-DCONSUMER_SOURCE=${SOURCE}/examples/read_archive/main.cpp")
run("${CMAKE_COMMAND}" --build "${WORK}/build")

file(READ "${WORK}/build/bundle.txt" bundle)
run("${PYTHON}" "${SOURCE}/tests/project/run_example.py" "${WORK}/build/consumer" ${DECLARATIVE_SERVICES} "${bundle}")

# The installed tool finds the installed plug-in.
execute_process(COMMAND "${prefix}/bin/kxvfs" providers RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0 OR NOT output MATCHES "zip")
  message(FATAL_ERROR "the installed kxvfs does not serve the scheme zip (status ${result}):\n${output}")
endif()
