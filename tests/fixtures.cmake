# Throwaway MariaDB servers shared by one test run: the fixture "mariadb".
# ctest starts them before the first test that requires the fixture and stops
# them after the last one, also when tests fail
# (scripts/mariadb-test-server.sh; state files described in
# doc/mariadb-test-server.md). The fixture holds
#   - the server as installed, with a password account
#     (state in <build>/tests/mariadb/server.state), and
#   - servers of the same installation that announce other version strings,
#     for the version rules of the client
#     (state in <build>/tests/mariadb-versions/<version>/server.state).

set(QB_MARIADB_SCRIPT ${PROJECT_SOURCE_DIR}/scripts/mariadb-test-server.sh)
set(QB_MARIADB_STATE_ROOT ${PROJECT_BINARY_DIR}/tests)

# Versions the stand-in servers announce: a suffix after the third number, a
# text with only two numbers, the one release whose password protocol the
# program refuses, the last release before utf8mb4, and a server of the old
# naming rules. The first one also runs with a global sql_mode that the
# program's session must correct (NO_BACKSLASH_ESCAPES on) and keep (the
# others), and with a wait_timeout the session must raise.
set(QB_MARIADB_STAND_IN_VERSIONS 5.7.30-log 5.7 4.1.0 5.5.2 4.0.27)
set(QB_MARIADB_OPTIONS_5.7.30-log
    --server-option=--sql-mode=ANSI_QUOTES,NO_BACKSLASH_ESCAPES,STRICT_ALL_TABLES
    --server-option=--wait-timeout=600)

# One server of the fixture: a set-up test that starts it and a clean-up test
# that stops it. Further arguments go to the script's start.
function(qb_mariadb_server name state_dir)
  add_test(NAME ${name}.start COMMAND ${QB_MARIADB_SCRIPT} start ${state_dir} ${ARGN})
  set_tests_properties(${name}.start PROPERTIES FIXTURES_SETUP mariadb TIMEOUT 300)
  add_test(NAME ${name}.stop COMMAND ${QB_MARIADB_SCRIPT} stop ${state_dir})
  set_tests_properties(${name}.stop PROPERTIES FIXTURES_CLEANUP mariadb TIMEOUT 180)
endfunction()

qb_mariadb_server(mariadb ${QB_MARIADB_STATE_ROOT}/mariadb)
foreach(version IN LISTS QB_MARIADB_STAND_IN_VERSIONS)
  qb_mariadb_server(mariadb-${version} ${QB_MARIADB_STATE_ROOT}/mariadb-versions/${version}
                     --server-version=${version} ${QB_MARIADB_OPTIONS_${version}})
endforeach()

# The test helpers find the state files here.
target_compile_definitions(qb_test_support PRIVATE QB_MARIADB_STATE_ROOT="${QB_MARIADB_STATE_ROOT}")

# The script itself: a stale server of an interrupted run, a taken port,
# stopping twice. Runs servers of its own, apart from the fixture.
add_test(NAME mariadb_script.selftest COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/mariadb_server_selftest.sh)
set_tests_properties(mariadb_script.selftest PROPERTIES TIMEOUT 600)
