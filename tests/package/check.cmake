# Installs what was built into an empty folder, builds the example project against the package there, and runs its
# tests.
#   cmake -D BUILD=<build folder> -D EXAMPLE=<project> -D SCRATCH=<folder> -D GENERATOR=... -D COMPILER=... -D FLAGS=... -P
file(REMOVE_RECURSE ${SCRATCH})
set(prefix ${SCRATCH}/prefix)
set(project ${SCRATCH}/project)
foreach(step
        "--install|${BUILD}|--prefix|${prefix}"
        "-S|${EXAMPLE}|-B|${project}|-G|${GENERATOR}|-DCMAKE_PREFIX_PATH=${prefix}|-DCMAKE_CXX_COMPILER=${COMPILER}|-DCMAKE_CXX_FLAGS=${FLAGS}"
        "--build|${project}")
    string(REPLACE "|" ";" arguments "${step}")
    execute_process(COMMAND ${CMAKE_COMMAND} ${arguments} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND ${CMAKE_CTEST_COMMAND} --test-dir ${project} --output-on-failure COMMAND_ERROR_IS_FATAL ANY)
