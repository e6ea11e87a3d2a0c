# Installs the built library into a scratch prefix, then builds and runs a consumer of it
# through find_package(kora), and checks the pkg-config file's flags.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGV}\n${out}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_RPATH=${prefix}/lib)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
file(GLOB_RECURSE libdirs LIST_DIRECTORIES false ${prefix}/*/libkora.so)
list(GET libdirs 0 lib)
get_filename_component(libdir ${lib} DIRECTORY)
# Run from another folder than the repository's, on an example file, as the README shows.
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${WORK_DIR}/build/consumer
    ${EXAMPLES_DIR}/drugs.sdf ${WORK_DIR}/entry3.mol2)
file(READ ${WORK_DIR}/entry3.mol2 mol2)
if(NOT mol2 MATCHES "^@<TRIPOS>MOLECULE\nibuprofen\n")
  message(FATAL_ERROR "the example wrote:\n${mol2}")
endif()
# The README's example is the consumer's main function: at most ten lines.
file(STRINGS ${SOURCE_DIR}/main.cpp lines REGEX "[^ ]")
list(LENGTH lines count)
if(count GREATER 11)
  message(FATAL_ERROR "the example has ${count} lines")
endif()
# The installed program starts without LD_LIBRARY_PATH (its RPATH finds the library).
file(GLOB_RECURSE tools ${prefix}/bin/kora)
if(tools)
  run(${prefix}/bin/kora --version)
endif()

file(GLOB_RECURSE pcs ${prefix}/*/kora.pc)
list(LENGTH pcs npc)
if(NOT npc EQUAL 1)
  message(FATAL_ERROR "kora.pc not installed")
endif()
file(READ ${pcs} pc)
if(NOT pc MATCHES "Libs: -L[^\n]* -lkora" OR NOT pc MATCHES "Cflags: -I" OR pc MATCHES "-std=")
  message(FATAL_ERROR "kora.pc lacks Libs or Cflags:\n${pc}")
endif()
