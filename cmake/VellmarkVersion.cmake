# What `--version` of vellmarkd and vellmarkctl prints, written into one generated header
# (VellmarkVersion.h beside the generated protobuf headers) at configure time:
# - the library's version: the project's version;
# - the schema's version: the first 16 hex digits of a SHA-256 over the .proto files that
#   are installed for callers (Protobufs/ and lan/), each file's name and content in name
#   order. It changes whenever the wire schema does, with no number to keep up by hand; the
#   globs re-run configure when a .proto file changes;
# - the build: `git describe --always --dirty` of the source tree, or "unknown" outside git.
file(GLOB VELLMARK_SCHEMA_FILES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/Protobufs/*.proto
     ${PROJECT_SOURCE_DIR}/lan/*.proto)
list(SORT VELLMARK_SCHEMA_FILES)
set(schema_text "")
foreach(proto IN LISTS VELLMARK_SCHEMA_FILES)
  file(READ ${proto} content)
  get_filename_component(name ${proto} NAME)
  string(APPEND schema_text "${name}\n${content}\n")
endforeach()
string(SHA256 schema_digest "${schema_text}")
string(SUBSTRING ${schema_digest} 0 16 VELLMARK_SCHEMA_VERSION)

set(VELLMARK_BUILD_ID unknown)
find_package(Git QUIET)
if(GIT_FOUND)
  execute_process(COMMAND ${GIT_EXECUTABLE} describe --always --dirty
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
                  OUTPUT_VARIABLE described OUTPUT_STRIP_TRAILING_WHITESPACE
                  RESULT_VARIABLE described_result ERROR_QUIET)
  if(described_result EQUAL 0 AND described)
    set(VELLMARK_BUILD_ID ${described})
  endif()
endif()

configure_file(${CMAKE_CURRENT_LIST_DIR}/VellmarkVersion.h.in ${VELLMARK_PROTO_OUT}/VellmarkVersion.h
               @ONLY)
