# cmake -P script: installs the build tree into a temporary prefix, moves the prefix elsewhere
# (the package must be relocatable), then configures, builds and runs the host project against
# it, once through find_package and once through pkg-config.
# Inputs: BUILD_DIR, WORK_DIR, HOST_SOURCE, LIBDIR, GENERATOR, C_COMPILER, MAKE_PROGRAM.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${status}): ${command}\n${output}")
  endif()
endfunction()

# A directory of this run's own, so that runs of the suite side by side do not collide.
string(RANDOM LENGTH 12 run)
set(WORK_DIR ${WORK_DIR}/${run})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/staging)
set(prefix ${WORK_DIR}/moved-prefix)
file(RENAME ${WORK_DIR}/staging ${prefix})

foreach(method find_package pkg-config)
  set(host ${WORK_DIR}/host-${method})
  # Only the moved prefix may be found: no CMake package registry, no system .pc files.
  run(${CMAKE_COMMAND} -E env PKG_CONFIG_LIBDIR=${prefix}/${LIBDIR}/pkgconfig
      ${CMAKE_COMMAND} -S ${HOST_SOURCE} -B ${host} -G ${GENERATOR}
      -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}
      -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
      -DHOST_FINDS_PACKAGE_WITH=${method})
  run(${CMAKE_COMMAND} --build ${host})
  file(READ ${host}/plugin-path.txt plugin)
  string(FIND "${plugin}" "${prefix}/" pluginInPrefix)
  if(NOT pluginInPrefix EQUAL 0)
    message(FATAL_ERROR "${method}: the package names a plug-in outside the prefix: ${plugin}")
  endif()
  # The host exits with 0 only after a whole session with the plug-in.
  run(${host}/packaged_host ${plugin})
  message(STATUS "${method}: a session with ${plugin}")
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
