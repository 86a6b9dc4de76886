# Run with cmake -P: install BUILD_DIR into WORK_DIR/prefix, check that no
# installed file names the build machine's source or build folders, move the
# prefix to WORK_DIR/elsewhere/prefix, then build and run the consumer against
# the moved prefix, once through its CMake package and once through
# pkg-config. TOOLCHAIN_FILE, CXX and EMULATOR (a command line) come from a
# cross build; PKG_CONFIG_LIBDIR is the .pc search path of its target.
file(REMOVE_RECURSE ${WORK_DIR})
set(installed ${WORK_DIR}/prefix)
set(prefix ${WORK_DIR}/elsewhere/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${installed})

# Relocatable: nothing installed may point back into this machine's trees
# (the scratch prefix included: a path baked in at install time).
file(GLOB_RECURSE files LIST_DIRECTORIES false ${installed}/*)
foreach(file ${files})
  foreach(path ${BUILD_DIR} ${SOURCE_DIR} ${WORK_DIR})
    file(STRINGS ${file} hits REGEX "${path}")
    if(hits)
      list(GET hits 0 hit)
      message(FATAL_ERROR "${file} names ${path}: ${hit}")
    endif()
  endforeach()
endforeach()

file(MAKE_DIRECTORY ${WORK_DIR}/elsewhere)
file(RENAME ${installed} ${prefix})

set(toolchain "")
if(TOOLCHAIN_FILE)
  set(toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE})
endif()
separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
set(env ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib:${prefix}/lib64)

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -DCMAKE_PREFIX_PATH=${prefix} ${toolchain})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${env} ${emulator} ${WORK_DIR}/consumer/consumer)
message(STATUS "installed package builds and runs through its CMake package")

# The same consumer through pkg-config (the components it links).
set(pkgenv ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig)
if(PKG_CONFIG_LIBDIR)
  list(APPEND pkgenv PKG_CONFIG_LIBDIR=${PKG_CONFIG_LIBDIR})
endif()
execute_process(COMMAND ${pkgenv} pkg-config --cflags --libs zuvoplay zuvo-host zuvo-streamer-service
  RESULT_VARIABLE rc OUTPUT_VARIABLE flags ERROR_VARIABLE err OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config failed: ${err}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${CONSUMER_DIR}/main.cpp ${flags} -o ${WORK_DIR}/consumer-pkgconfig)
run(${env} ${emulator} ${WORK_DIR}/consumer-pkgconfig)
message(STATUS "installed package builds and runs through pkg-config")
