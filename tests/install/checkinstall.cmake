# Run with cmake -P: install BUILD_DIR into WORK_DIR/prefix, then configure,
# build and run the consumer project against that prefix.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib:${prefix}/lib64 ${WORK_DIR}/consumer/consumer)
message(STATUS "installed package builds and runs")
