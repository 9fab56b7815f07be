# Makes the distribution from the built executables: the zip of the patcher
# folder and the NSIS installer of the same files, signed when a certificate
# is given. Run by the package target, and by the installer test with a
# throwaway certificate:
#   cmake -DINSPECTOR=<rig_inspector.exe> [-DCLI=<rig_inspector_cli.exe>]
#         -DOUT_DIR=<folder> -DVERSION=<a.b.c> -DNSI=<installer.nsi>
#         -DSTRIP=<strip> -DMAKENSIS=<makensis>
#         [-DSIGN_CERT=<cert.pem> -DSIGN_KEY=<key.pem> [-DSIGN_PASS=<password>]]
#         -P package.cmake
foreach(_var INSPECTOR OUT_DIR VERSION NSI STRIP MAKENSIS)
    if(NOT ${_var})
        message(FATAL_ERROR "package.cmake: ${_var} is not set")
    endif()
endforeach()
find_program(OSSLSIGNCODE osslsigncode)

function(rig_run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE _rc OUTPUT_VARIABLE _out ERROR_VARIABLE _out)
    if(NOT _rc EQUAL 0)
        message(FATAL_ERROR "failed (${_rc}): ${ARGN}\n${_out}")
    endif()
endfunction()

# Authenticode signature in place; the timestamp server is for a release
# build with network access (see docs/windows.md).
function(rig_sign file)
    if(NOT SIGN_CERT)
        return()
    endif()
    if(NOT OSSLSIGNCODE)
        message(FATAL_ERROR "osslsigncode is missing: run scripts/setup.sh")
    endif()
    set(_pass)
    if(SIGN_PASS)
        set(_pass -pass ${SIGN_PASS})
    endif()
    rig_run(${OSSLSIGNCODE} sign -certs ${SIGN_CERT} -key ${SIGN_KEY} ${_pass} -h sha256
            -n "Dunmore Nine Rig Inspector" -in ${file} -out ${file}.signed)
    file(RENAME ${file}.signed ${file})
endfunction()

set(_stage ${OUT_DIR}/stage)
file(REMOVE_RECURSE ${_stage})
file(MAKE_DIRECTORY ${_stage}/patcher)
# The game's patcher starts the analyzer as fc.exe from its own folder.
set(_exes ${_stage}/patcher/fc.exe)
file(COPY_FILE ${INSPECTOR} ${_stage}/patcher/fc.exe)
if(CLI)
    file(COPY_FILE ${CLI} ${_stage}/patcher/rig_inspector_cli.exe)
    list(APPEND _exes ${_stage}/patcher/rig_inspector_cli.exe)
endif()
foreach(_exe ${_exes})
    rig_run(${STRIP} --strip-all ${_exe})
    rig_sign(${_exe})
endforeach()

set(_zip ${OUT_DIR}/RigInspector-${VERSION}-win64.zip)
file(REMOVE ${_zip})
execute_process(COMMAND ${CMAKE_COMMAND} -E tar cf ${_zip} --format=zip patcher
                WORKING_DIRECTORY ${_stage} RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
    message(FATAL_ERROR "zip failed")
endif()

set(_setup ${OUT_DIR}/RigInspector-${VERSION}-setup.exe)
rig_run(${MAKENSIS} -V2 -DSTAGE=${_stage} -DOUTFILE=${_setup} -DVERSION=${VERSION}.0 ${NSI})
rig_sign(${_setup})
message(STATUS "Packaged ${_zip} and ${_setup}")
