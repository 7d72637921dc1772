# Install rules: the three libraries, the headers a caller of the client needs, the two
# programs, an exported CMake package (find_package(VellmarkClient), target
# VellmarkClient::VellmarkClient) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS TarvLibs VellmarkLan VellmarkClient
        EXPORT VellmarkClientTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vellmarkd vellmarkctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The client's headers and everything they include, the framework's headers a caller uses
# beside them, and the generated schema headers.
install(FILES
          client/VellmarkClientAPI.h client/VellmarkClientAPIIF.h client/VellmarkClientExport.h
          client/VellmarkClientLog.h
          framework/AsyncCallback.h framework/Callback.h framework/IPCMessageEnvelope.h
          framework/IPCMessageRouterIF.h
          platform/AsyncCallbackImplBase.h platform/BreakThread.h platform/CallbackConnection.h
          platform/CallbackList.h platform/ClientListener.h platform/ConnectorSocket.h
          platform/DPrint.h platform/EntryQueue.h platform/IPCDirectory.h
          platform/LifetimeGuard.h platform/NotifyTargetTaskIF.h platform/ProtoToMarkup.h
          platform/Redact.h platform/StopNotifier.h platform/Task.h platform/WeakRef.h
        DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR})
install(DIRECTORY ${VELLMARK_PROTO_OUT}/ DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.pb.h"
        PATTERN "IPCFrame.pb.h" EXCLUDE
        PATTERN "VellmarkAdmin.pb.h" EXCLUDE)
install(DIRECTORY Protobufs/ lan/ DESTINATION ${VELLMARK_INSTALL_INCLUDEDIR}/proto
        FILES_MATCHING PATTERN "*.proto")

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
