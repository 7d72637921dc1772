# The console's tests, included by tests/CMakeLists.txt when vellmark-console is built.
# Unit tests of its parts without a process or a socket:
vellmark_test(console_tests unit/console VellmarkConsoleCore)
target_compile_definitions(console_tests PRIVATE
  VELLMARK_SEED_PATH="${PROJECT_SOURCE_DIR}/examples/seed.json")

# Its HTTP API against the real vellmarkd and the real vellmark-console, as child processes.
vellmark_test(console_api_tests console VellmarkConsoleCore VellmarkAdmin VellmarkClient
              TarvTesting)
target_compile_definitions(console_api_tests PRIVATE
  VELLMARKD_PATH="$<TARGET_FILE:vellmarkd>"
  VELLMARKCTL_PATH="$<TARGET_FILE:vellmarkctl>"
  VELLMARK_CONSOLE_PATH="$<TARGET_FILE:vellmark-console>"
  VELLMARK_SEED_PATH="${PROJECT_SOURCE_DIR}/examples/seed.json")
add_dependencies(console_api_tests vellmarkd vellmarkctl vellmark-console)
