# Install rules: the three libraries, the headers a caller of the client needs, the two
# programs with their manual pages and vellmarkctl's bash completion, vellmarkd's systemd
# units, an exported CMake package (find_package(VellmarkClient), target
# VellmarkClient::VellmarkClient) and a pkg-config file; with the testing kit, its library
# and headers and the package's component Testing (target VellmarkClient::Testing).
include(CMakePackageConfigHelpers)
include(VellmarkSystemdUnits)

install(TARGETS VellmarkFramework TarvLibs VellmarkLan VellmarkClient
        EXPORT VellmarkClientTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vellmarkd vellmarkctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Pages in section N go to share/man/manN (none in a cross build without an emulator).
foreach(page IN LISTS VELLMARK_MAN_PAGES)
  string(REGEX REPLACE ".*\\.([0-9])$" "\\1" section ${page})
  install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
install(FILES tools/completion/vellmarkctl
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)

# The units name the program where the install puts it. They are made while installing,
# from the prefix of that install: `cmake --install BUILD --prefix P` gives units that
# start P's vellmarkd (DESTDIR, a staging folder, is not part of the name). Component
# "systemd" alone installs just them.
set(VELLMARK_SYSTEMD_UNITDIR lib/systemd/system CACHE PATH
    "where vellmarkd's systemd units are installed (relative: under the install prefix)")
set(units_made ${CMAKE_CURRENT_BINARY_DIR}/systemd-installed)
if(IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
  set(vellmarkd_at "${CMAKE_INSTALL_BINDIR}/vellmarkd")
else()
  set(vellmarkd_at "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/vellmarkd")
endif()
install(CODE "
  set(VELLMARK_RUNTIME_DIR [[${VELLMARK_RUNTIME_DIR}]])
  set(VELLMARKD_PATH \"${vellmarkd_at}\")
  foreach(unit ${VELLMARK_SYSTEMD_UNITS})
    configure_file(\"${PROJECT_SOURCE_DIR}/service/systemd/\${unit}.in\"
                   \"${units_made}/\${unit}\" @ONLY)
  endforeach()" COMPONENT systemd)
list(TRANSFORM VELLMARK_SYSTEMD_UNITS PREPEND ${units_made}/ OUTPUT_VARIABLE units)
install(FILES ${units} DESTINATION ${VELLMARK_SYSTEMD_UNITDIR} COMPONENT systemd)

# The public headers of the three libraries, each under include/VellmarkClient/ at the path
# it has in the tree, so that their includes ("framework/task/...") hold once installed.
set(VELLMARK_PUBLIC_HEADERS
  client/VellmarkClientAPI.h client/VellmarkClientAPIIF.h client/VellmarkClientExport.h
  client/VellmarkClientLog.h
  framework/AsyncCallback.h framework/AsyncCallbackImplBase.h framework/Callback.h
  framework/ipc/ConnectorSocket.h framework/ipc/IPCMessageEnvelope.h
  framework/ipc/IPCMessageRouterIF.h
  framework/task/CallbackConnection.h framework/task/NotifyTargetTaskIF.h
  framework/task/WeakRef.h
  platform/TarvExport.h
  platform/ipc/ClientListener.h platform/ipc/IPCDirectory.h platform/ipc/IPCFrameLimit.h
  platform/ipc/IPCLog.h platform/ipc/IPCMessageRouterFactory.h platform/ipc/IPCServer.h
  platform/ipc/IPCServerLimits.h platform/ipc/PeerCredentials.h
  platform/log/DPrint.h platform/log/ProtoToMarkup.h platform/log/Redact.h
  platform/task/BreakThread.h platform/task/CallbackList.h platform/task/EntryQueue.h
  platform/task/EventLoopOwner.h platform/task/LifetimeGuard.h platform/task/StopNotifier.h platform/task/Task.h)
foreach(header IN LISTS VELLMARK_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}/${folder})
endforeach()
# The client's own headers are reached as <VellmarkClient/VellmarkClientAPI.h> too.
foreach(header VellmarkClientAPI.h VellmarkClientAPIIF.h VellmarkClientLog.h)
  set(forwarder ${CMAKE_CURRENT_BINARY_DIR}/forwarding/${header})
  file(WRITE ${forwarder} "#pragma once\n#include \"client/${header}\"\n")
  install(FILES ${forwarder} DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR})
endforeach()
# The testing kit: its own export set, so that the package asks for gMock only when the
# component Testing is asked for.
if(TARGET VellmarkClientTesting)
  install(TARGETS VellmarkClientTesting EXPORT VellmarkClientTestingTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES testing/FakeService.h testing/MockVellmarkClientAPI.h
                testing/VellmarkTestingExport.h
          DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}/testing)
  install(EXPORT VellmarkClientTestingTargets NAMESPACE VellmarkClient::
          DESTINATION ${VELLMARK_INSTALL_CMAKEDIR})
endif()
install(DIRECTORY ${VELLMARK_PROTO_OUT}/ DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.pb.h"
        PATTERN "IPCFrame.pb.h" EXCLUDE
        PATTERN "VellmarkAdmin.pb.h" EXCLUDE
        PATTERN "tests" EXCLUDE)
# Every schema a consumer compiles against, at the name the others import it by, so that
# protoc -I <prefix>/include/VellmarkClient/proto takes them as they are.
install(DIRECTORY Protobufs/ lan/ DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}/proto
        FILES_MATCHING PATTERN "*.proto")
install(FILES platform/log/ProtoToMarkup/MarkupOptions.proto
        DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}/proto/ProtoToMarkup)
install(FILES framework/ipc/IPCMessageEnvelopeBase.proto
        DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}/proto)
# The Wireshark dissector for `vellmarkctl monitor --pcap` captures; it decodes payloads
# with the .proto files above (README: "Watching the traffic").
install(FILES wireshark/vellmark.lua
        DESTINATION ${CMAKE_INSTALL_DATADIR}/VellmarkClient/wireshark)

install(EXPORT VellmarkClientTargets NAMESPACE VellmarkClient::
        DESTINATION ${VELLMARK_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/VellmarkClientConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/VellmarkClientConfig.cmake
                              INSTALL_DESTINATION ${VELLMARK_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VellmarkClientConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VellmarkClientConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/VellmarkClientConfigVersion.cmake
        DESTINATION ${VELLMARK_INSTALL_CMAKEDIR})

# The .pc file finds its prefix from where it lies, so an installed tree can be moved.
file(RELATIVE_PATH VELLMARK_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/VellmarkClient.pc.in ${CMAKE_CURRENT_BINARY_DIR}/VellmarkClient.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VellmarkClient.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
