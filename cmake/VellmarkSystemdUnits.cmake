# vellmarkd's systemd units (service/systemd/*.in): the service, and one socket unit per
# endpoint. vellmark_systemd_units(FOLDER VELLMARKD) writes them into FOLDER for the program
# at VELLMARKD (a path, or a generator expression such as $<TARGET_FILE:vellmarkd>).

# Where clients look for the endpoints when TARV_RUNTIME_DIR is unset:
# IPCDirectory::kDefaultRuntimeFolder (a test holds the two together).
set(VELLMARK_RUNTIME_DIR /run/tarv)
set(VELLMARK_SYSTEMD_UNITS vellmarkd.service vellmarkd.socket vellmarkd-admin.socket)

function(vellmark_systemd_units folder vellmarkd)
  set(VELLMARKD_PATH ${vellmarkd})
  string(MAKE_C_IDENTIFIER ${folder} key)
  foreach(unit IN LISTS VELLMARK_SYSTEMD_UNITS)
    # configure_file fills in the paths; file(GENERATE) then resolves a target's file.
    set(configured ${CMAKE_CURRENT_BINARY_DIR}/systemd-configured/${key}/${unit})
    configure_file(${PROJECT_SOURCE_DIR}/service/systemd/${unit}.in ${configured} @ONLY)
    file(GENERATE OUTPUT ${folder}/${unit} INPUT ${configured})
  endforeach()
endfunction()
