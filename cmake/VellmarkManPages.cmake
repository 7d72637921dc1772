# Manual pages made at build time by help2man from the programs' own --help and --version:
# vellmarkd(8) and vellmarkctl(1), in ${CMAKE_BINARY_DIR}/man. A cross build runs the
# programs under CMAKE_CROSSCOMPILING_EMULATOR, or makes no pages when it has none.
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

# vellmark_man_page(<target> <section> <one-line description>)
function(vellmark_man_page target section description)
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
    COMMAND ${HELP2MAN_EXECUTABLE} --no-info --no-discard-stderr --section=${section}
            --name=${description} --output=${page} ${program}
    DEPENDS ${target}
    COMMENT "manual page ${target}(${section})"
    VERBATIM)
  set(VELLMARK_MAN_PAGES ${VELLMARK_MAN_PAGES} ${page} PARENT_SCOPE)
endfunction()

vellmark_man_page(vellmarkd 8 "the reference Vellmark service")
vellmark_man_page(vellmarkctl 1 "drive the Vellmark service from the command line")
add_custom_target(man_pages ALL DEPENDS ${VELLMARK_MAN_PAGES})
