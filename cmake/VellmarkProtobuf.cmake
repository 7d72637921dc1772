# Generates C++ from .proto files with protoc at build time.
#
# Every schema is compiled relative to its own import root, so that it registers in the
# descriptor pool under the plain name other schemas import it by ("Errors.proto",
# "ProtoToMarkup/MarkupOptions.proto"). All generated files go under one folder, the
# second include root beside the repository's, where the generated headers find each
# other by the names their schemas import.
set(VELLMARK_PROTO_OUT ${CMAKE_BINARY_DIR}/generated)
set(VELLMARK_PROTO_ROOTS
    ${PROJECT_SOURCE_DIR}/framework/ipc
    ${PROJECT_SOURCE_DIR}/platform/log
    ${PROJECT_SOURCE_DIR}/platform/ipc/transport
    ${PROJECT_SOURCE_DIR}/lan
    ${PROJECT_SOURCE_DIR}/Protobufs
    ${PROJECT_SOURCE_DIR}/admin)
file(MAKE_DIRECTORY ${VELLMARK_PROTO_OUT})
# Every schema of every root: a change to an imported file regenerates its importers too.
set(VELLMARK_PROTO_FILES)
foreach(dir ${VELLMARK_PROTO_ROOTS})
  file(GLOB_RECURSE found CONFIGURE_DEPENDS ${dir}/*.proto)
  list(APPEND VELLMARK_PROTO_FILES ${found})
endforeach()

# vellmark_protobuf_generate(<out-var> <import-root> <file.proto>...)
# Sets <out-var> to the generated .pb.cc files.
#
# The files named in VELLMARK_PROTO_FOR_SIZE (as given here) are generated for size:
# protoc's code_size mode, whatever the schema's optimize_for says, so the schema and its
# descriptor stay as they are. Their messages keep the same classes and members; they parse,
# serialize and merge through reflection, slower, and their code is compiled with -Os. For
# messages off the update and reply paths.
function(vellmark_protobuf_generate out_var root)
  set(include_flags -I${root})
  foreach(dir ${VELLMARK_PROTO_ROOTS})
    list(APPEND include_flags -I${dir})
  endforeach()
  set(sources)
  foreach(proto ${ARGN})
    get_filename_component(abs ${proto} ABSOLUTE BASE_DIR ${root})
    file(RELATIVE_PATH rel ${root} ${abs})
    string(REGEX REPLACE "\\.proto$" "" stem ${rel})
    set(cc ${VELLMARK_PROTO_OUT}/${stem}.pb.cc)
    set(h ${VELLMARK_PROTO_OUT}/${stem}.pb.h)
    set(mode "")
    set(options -w)
    if(proto IN_LIST VELLMARK_PROTO_FOR_SIZE)
      set(mode "code_size:")
      list(APPEND options -Os)
    endif()
    add_custom_command(
      OUTPUT ${cc} ${h}
      COMMAND protobuf::protoc --cpp_out=${mode}${VELLMARK_PROTO_OUT} ${include_flags} ${abs}
      DEPENDS ${abs} ${VELLMARK_PROTO_FILES} protobuf::protoc
      COMMENT "Generating C++ from ${rel}"
      VERBATIM)
    set_source_files_properties(${cc} PROPERTIES COMPILE_OPTIONS "${options}")
    list(APPEND sources ${cc})
  endforeach()
  set(${out_var} ${sources} PARENT_SCOPE)
endfunction()
