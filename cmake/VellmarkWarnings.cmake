# Warnings are errors for the project's own code; generated protobuf code is built
# without them (see VellmarkProtobuf.cmake).
function(vellmark_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()
