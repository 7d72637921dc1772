# Manual pages made at build time by help2man from the programs' own help: vellmarkd(8)
# from `vellmarkd --help`, vellmarkctl(1) from `vellmarkctl --help-all` (every command),
# each with an include file of what the help does not hold (ENVIRONMENT, FILES, EXAMPLES,
# SEE ALSO: service/vellmarkd.h2m, tools/vellmarkctl.h2m), in ${CMAKE_BINARY_DIR}/man.
# The help's "Exit status:" paragraph becomes the EXIT STATUS section. Nothing of the
# building machine goes in: the programs run without the environment that changes their
# defaults, and the version is the project's. A cross build runs the programs under
# CMAKE_CROSSCOMPILING_EMULATOR, or makes no pages when it has none.
# Sets VELLMARK_MAN_PAGES to the pages made (empty: none).
set(VELLMARK_MAN_PAGES "")
find_program(HELP2MAN_EXECUTABLE help2man)
if(NOT HELP2MAN_EXECUTABLE)
  message(STATUS "help2man not found (scripts/install-deps installs it): no manual pages")
  return()
endif()
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  message(STATUS "cross build without CMAKE_CROSSCOMPILING_EMULATOR: no manual pages")
  return()
endif()

set(man_dir ${CMAKE_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${man_dir})

# vellmark_man_page(<target> <section> <one-line description> <help option> <include file>)
function(vellmark_man_page target section description help_option include)
  set(program $<TARGET_FILE:${target}>)
  if(CMAKE_CROSSCOMPILING)
    # help2man runs one program: a script of the program's name that starts it under the
    # emulator (the name is what the page is titled by).
    set(launcher "")
    foreach(word IN LISTS CMAKE_CROSSCOMPILING_EMULATOR)
      string(APPEND launcher "'${word}' ")
    endforeach()
    set(program ${man_dir}/run/${target})
    file(GENERATE OUTPUT ${program}
         CONTENT "#!/bin/sh\nexec ${launcher}'$<TARGET_FILE:${target}>' \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                          WORLD_READ WORLD_EXECUTE)
  endif()
  set(page ${man_dir}/${target}.${section})
  add_custom_command(
    OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E env --unset=TARV_RUNTIME_DIR --unset=TARV_IPC_MAX_FRAME_BYTES
            --unset=TARV_LOG_LEVEL --unset=XDG_DATA_HOME
            ${HELP2MAN_EXECUTABLE} --no-info --no-discard-stderr --section=${section}
            --name=${description} --version-string=${PROJECT_VERSION}
            --help-option=${help_option} --include=${include} --output=${page}.made ${program}
    COMMAND ${CMAKE_COMMAND} -DPAGE=${page}.made -DOUTPUT=${page}
            -P ${PROJECT_SOURCE_DIR}/cmake/VellmarkManPageSections.cmake
    DEPENDS ${target} ${include} ${PROJECT_SOURCE_DIR}/cmake/VellmarkManPageSections.cmake
    COMMENT "manual page ${target}(${section})"
    VERBATIM)
  set(VELLMARK_MAN_PAGES ${VELLMARK_MAN_PAGES} ${page} PARENT_SCOPE)
endfunction()

vellmark_man_page(vellmarkd 8 "the reference Vellmark service" --help
                  ${PROJECT_SOURCE_DIR}/service/vellmarkd.h2m)
vellmark_man_page(vellmarkctl 1 "drive the Vellmark service from the command line" --help-all
                  ${PROJECT_SOURCE_DIR}/tools/vellmarkctl.h2m)
add_custom_target(man_pages ALL DEPENDS ${VELLMARK_MAN_PAGES})
