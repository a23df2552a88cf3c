# Installs the build in BUILD_DIR under WORK_DIR/prefix, checks the installed
# files, then builds the consumer against them through pkg-config and through
# find_package, and runs both builds.
set(prefix ${WORK_DIR}/prefix)
set(libdir ${prefix}/${LIBDIR})
file(REMOVE_RECURSE ${WORK_DIR})

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${out}")
  endif()
  message(STATUS "${what}: ok")
endfunction()

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# libTarvo.so -> libTarvo.so.1 -> libTarvo.so.1.0.0, and the headers.
foreach(link target IN ZIP_LISTS "libTarvo.so;libTarvo.so.1" "libTarvo.so.1;libTarvo.so.1.0.0")
  file(READ_SYMLINK ${libdir}/${link} points_to)
  if(NOT points_to STREQUAL target)
    message(FATAL_ERROR "${link} points to '${points_to}', not ${target}")
  endif()
endforeach()
foreach(file ${libdir}/libTarvo.so.1.0.0 ${prefix}/${INCLUDEDIR}/tarvo/tarvo.h)
  if(NOT EXISTS ${file} OR IS_SYMLINK ${file})
    message(FATAL_ERROR "${file} is not installed")
  endif()
endforeach()

# The version file takes 1.x requests and refuses 2.
foreach(wanted compatible IN ZIP_LISTS "1.0;2.0" "TRUE;FALSE")
  set(PACKAGE_FIND_VERSION ${wanted})
  string(REPLACE "." ";" parts ${wanted})
  list(GET parts 0 PACKAGE_FIND_VERSION_MAJOR)
  include(${libdir}/cmake/Tarvo/TarvoConfigVersion.cmake)
  if(NOT PACKAGE_VERSION_COMPATIBLE STREQUAL compatible)
    message(FATAL_ERROR "version ${wanted} compatible: ${PACKAGE_VERSION_COMPATIBLE}")
  endif()
endforeach()

set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs tarvo
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
run("pkg-config build" ${C_COMPILER} ${CONSUMER_DIR}/consumer.c ${flags}
  -Wl,-rpath,${libdir} -o ${WORK_DIR}/consumer_pkgconfig)
run("pkg-config consumer" ${WORK_DIR}/consumer_pkgconfig)

run("find_package configure" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake
  -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_PREFIX_PATH=${prefix})
run("find_package build" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
run("find_package consumer" ${WORK_DIR}/cmake/consumer)
