# Writes the version header; run at every build so that the revision follows
# the checked-out commit. configure_file leaves an unchanged header untouched.
execute_process(
    COMMAND git log -1 "--format=%h %ci"
    WORKING_DIRECTORY ${SOURCE_DIR}
    OUTPUT_VARIABLE TESSERA_GIT_REVISION
    OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_QUIET)
if(NOT TESSERA_GIT_REVISION)
    set(TESSERA_GIT_REVISION "unknown")
endif()
set(TESSERA_REVISION "${TESSERA_GIT_REVISION} (${BUILD_TYPE})")
configure_file(${SOURCE_DIR}/src/Version.h.in ${OUTPUT} @ONLY)
