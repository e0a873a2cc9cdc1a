# Installs the build tree into a scratch prefix, then configures, builds and
# runs a C host that uses find_package(svcompose).
file(REMOVE_RECURSE "${WORK}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK}/prefix"
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${CONSUMER}" -B "${WORK}/build"
                "-DCMAKE_PREFIX_PATH=${WORK}/prefix" "-DHOST_SOURCE=${HOST_SOURCE}"
                "-DCMAKE_C_FLAGS=${HOST_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${HOST_FLAGS}"
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "find_package(svcompose) failed: ${rc}")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK}/build" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer build failed: ${rc}")
endif()
execute_process(COMMAND "${WORK}/build/consumer" WORKING_DIRECTORY "${WORK}" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer run failed: ${rc}")
endif()
