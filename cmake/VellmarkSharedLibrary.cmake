# vellmark_shared_library(<target>): what every library shipped to the device gets.
# - A version and a SONAME that changes only with the major version.
# - Inline code stays out of the dynamic symbol table: every user compiles its own copy.
#   GCC keeps function-local statics of inline functions at default visibility, so
#   nothing that must be shared is split.
# - Links fail on an undefined symbol instead of leaving it to the loader on the device.
#   Sanitizer and fuzzing builds leave their runtimes' symbols to the executable, so the
#   check is off there.
function(vellmark_shared_library target)
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}
                                             VISIBILITY_INLINES_HIDDEN ON)
  if(NOT VELLMARK_SANITIZE AND NOT VELLMARK_FUZZ)
    target_link_options(${target} PRIVATE LINKER:--no-undefined)
  endif()
endfunction()
