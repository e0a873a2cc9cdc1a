# The installed tree as a user meets it, away from the source and build
# trees: pkg-config finds the library for a C host, the installed tool runs
# its demo on the installed example rig without LD_LIBRARY_PATH, the Python
# module imports and converts, and cpack -G DEB packs all of it into a .deb
# whose tool and module run unpacked.
# In the system's temporary folder, so that no source tree is near; kept
# for a look when a step fails.
set(tmp "$ENV{TMPDIR}")
if(NOT tmp)
  set(tmp /tmp)
endif()
string(RANDOM LENGTH 8 tag)
set(WORK "${tmp}/svcompose-installed-${tag}")
file(MAKE_DIRECTORY "${WORK}")
message(STATUS "working in ${WORK}")
set(prefix "${WORK}/prefix")

function(run what)
  cmake_parse_arguments(R "" "DIR;OUT" "COMMAND" ${ARGN})
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${R_COMMAND}
                  WORKING_DIRECTORY "${R_DIR}" RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(rc)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  if(R_OUT)
    set(${R_OUT} "${out}" PARENT_SCOPE)
  endif()
endfunction()

function(expect_in text needle what)
  string(FIND "${text}" "${needle}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${what}: no \"${needle}\" in:\n${text}")
  endif()
endfunction()

# The installed module imports from the tree alone and converts frames
# made with numpy (installed_module.py).
function(run_python tree)
  if(PYTHON)
    run("import svcompose from ${tree}" DIR "${WORK}"
        COMMAND "${CMAKE_COMMAND}" -E env "PYTHONPATH=${tree}/${PYDIR}" PYTHONDONTWRITEBYTECODE=1
                "${PYTHON}" "${PYCHECK}" "${tree}" "${WORK}/py-tables")
  endif()
endfunction()

# The tool's demo, in a fresh folder with no examples/ of its own; the rig
# it used must be the one under the tree's share/svcompose.
function(run_demo tool tree)
  file(MAKE_DIRECTORY "${tree}-run")
  run("${tool} demo" DIR "${tree}-run"
      COMMAND "${tool}" demo --size 320x180 --out-size 320x200 --frames 2 --out demo)
  file(READ "${tree}-run/demo/report.txt" report)
  expect_in("${report}" "share/svcompose/rig-sedan.yaml" "${tool} demo")
endfunction()

run("install" DIR "${WORK}" COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")
file(MAKE_DIRECTORY "${WORK}/host")

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  run("pkg-config" DIR "${WORK}" OUT flags
      COMMAND "${CMAKE_COMMAND}" -E env "PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig"
              "${PKG_CONFIG}" --cflags --libs svcompose)
  expect_in("${flags}" "-lsvcompose" "pkg-config --libs")
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run("C host built with pkg-config's flags" DIR "${WORK}/host"
      COMMAND "${C_COMPILER}" -std=c90 -pedantic-errors ${HOST_FLAGS} "${HOST_SOURCE}" ${flags}
              "-Wl,-rpath,${prefix}/${LIBDIR}" -o host)
  run("C host" DIR "${WORK}/host" COMMAND "${WORK}/host/host")
else()
  message(STATUS "pkg-config not found: its check skipped")
endif()

if(EXISTS "${prefix}/${BINDIR}/svcompose")
  run_demo("${prefix}/${BINDIR}/svcompose" "${WORK}/prefix")
endif()
run_python("${prefix}")

find_program(DPKG_DEB dpkg-deb)
if(NOT DPKG_DEB)
  message(STATUS "dpkg-deb not found: the Debian package is not checked")
  file(REMOVE_RECURSE "${WORK}")
  return()
endif()
run("cpack -G DEB" DIR "${BUILD_DIR}"
    COMMAND "${CPACK}" -G DEB -B "${WORK}/deb" --config "${BUILD_DIR}/CPackConfig.cmake")
file(GLOB debs "${WORK}/deb/*.deb")
list(LENGTH debs n)
if(NOT n EQUAL 1)
  message(FATAL_ERROR "cpack made ${n} packages: ${debs}")
endif()
run("dpkg-deb --contents" DIR "${WORK}" OUT contents COMMAND "${DPKG_DEB}" --contents "${debs}")
foreach(f ${EXPECTED_FILES})
  expect_in("${contents}" "./usr/${f}" "the package")
endforeach()
run("dpkg-deb -f" DIR "${WORK}" OUT depends COMMAND "${DPKG_DEB}" -f "${debs}" Depends)
expect_in("${depends}" "libc6" "the package's Depends")
run("dpkg-deb -x" DIR "${WORK}" COMMAND "${DPKG_DEB}" -x "${debs}" "${WORK}/extracted")
if(EXISTS "${WORK}/extracted/usr/bin/svcompose")
  run_demo("${WORK}/extracted/usr/bin/svcompose" "${WORK}/extracted")
endif()
run_python("${WORK}/extracted/usr")
file(REMOVE_RECURSE "${WORK}")
