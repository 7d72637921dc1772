# The console's tests, included by tests/CMakeLists.txt when vellmark-console is built.
# Unit tests of its parts without a process or a socket:
vellmark_test(console_tests unit/console Vellmark::ConsoleCore)
target_compile_definitions(console_tests PRIVATE
  VELLMARK_SEED_PATH="${PROJECT_SOURCE_DIR}/examples/seed.json")

# Its HTTP API against the real vellmarkd and the real vellmark-console, as child processes.
vellmark_test(console_api_tests console Vellmark::ConsoleCore Vellmark::Admin
              VellmarkClient::VellmarkClient Tarv::Testing)
target_compile_definitions(console_api_tests PRIVATE
  VELLMARKD_PATH="$<TARGET_FILE:vellmarkd>"
  VELLMARKCTL_PATH="$<TARGET_FILE:vellmarkctl>"
  VELLMARK_CONSOLE_PATH="$<TARGET_FILE:vellmark-console>"
  VELLMARK_SEED_PATH="${PROJECT_SOURCE_DIR}/examples/seed.json"
  VELLMARK_BINARY_DIR="${PROJECT_BINARY_DIR}")
add_dependencies(console_api_tests vellmarkd vellmarkctl vellmark-console)

# The page in a real browser: Debian's chromium and chromium-driver, driven headless by
# python3-selenium (Debian's python3: the one that has it). On the build machine only, and
# on amd64, where Debian builds the browser the test was written against; without the
# browser, its driver or selenium, the test says which is missing and is skipped.
if(NOT CMAKE_CROSSCOMPILING AND CMAKE_HOST_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  find_program(VELLMARK_DEBIAN_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH)
  if(VELLMARK_DEBIAN_PYTHON3)
    add_test(NAME console_browser
             COMMAND ${VELLMARK_DEBIAN_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/browser/console_browser_test.py
                     --vellmarkd $<TARGET_FILE:vellmarkd> --vellmarkctl $<TARGET_FILE:vellmarkctl>
                     --console $<TARGET_FILE:vellmark-console>
                     --seed ${PROJECT_SOURCE_DIR}/examples/seed.json
                     --screenshots ${CMAKE_BINARY_DIR}/console-screenshots)
    # A browser is heavy on a shared machine: it runs alone.
    set_tests_properties(console_browser PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600 RUN_SERIAL TRUE)
  else()
    add_test(NAME console_browser COMMAND ${CMAKE_COMMAND} -E echo "skipped: no /usr/bin/python3")
    set_tests_properties(console_browser PROPERTIES SKIP_REGULAR_EXPRESSION "skipped:")
  endif()
endif()
