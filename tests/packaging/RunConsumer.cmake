# Installs the built library into a private prefix, then configures, builds
# and runs a separate project that finds it with find_package(Orlavex).
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${WORK_DIR}/prefix
  RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
  -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release
  # A library built with a sanitizer needs its runtime in the program too.
  "-DCMAKE_CXX_FLAGS=${SANITIZER_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${SANITIZER_FLAGS}"
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configure failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "build failed: ${rc}")
endif()
foreach(program consumer consumer_qualified)
  execute_process(COMMAND ${WORK_DIR}/build/${program} RESULT_VARIABLE rc OUTPUT_VARIABLE out)
  message(STATUS "${program} said: ${out}")
  if(rc OR NOT out MATCHES "consumer ok")
    message(FATAL_ERROR "${program} failed: ${rc}")
  endif()
endforeach()
