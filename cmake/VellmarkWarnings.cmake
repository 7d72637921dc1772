# Warnings are errors for the project's own code; generated protobuf code is built
# without them (see VellmarkProtobuf.cmake).
function(vellmark_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    # GCC notes that GCC 7.1 changed how some arguments are passed on ARM; everything on
    # the target is built by a later compiler, so the note says nothing about our code.
    target_compile_options(${target} PRIVATE -Wno-psabi)
  endif()
endfunction()
