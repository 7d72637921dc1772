# Where `cmake --install` puts things. With VELLMARK_PRODUCT_LAYOUT the libraries go where
# the product keeps them, /opt/Tarv/lib32, and every installed binary finds its libraries
# there and in /opt/Tarv/lib. Otherwise the usual GNU layout under CMAKE_INSTALL_PREFIX,
# with programs finding the libraries beside them.
option(VELLMARK_PRODUCT_LAYOUT "Install as the product lays out its libraries (/opt/Tarv/lib32)" OFF)
if(VELLMARK_PRODUCT_LAYOUT)
  set(CMAKE_INSTALL_PREFIX /opt/Tarv CACHE PATH "" FORCE)
  set(CMAKE_INSTALL_LIBDIR lib32 CACHE PATH "" FORCE)
endif()
include(GNUInstallDirs)
if(VELLMARK_PRODUCT_LAYOUT)
  set(CMAKE_INSTALL_RPATH /opt/Tarv/lib32 /opt/Tarv/lib)
else()
  set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()
set(VELLMARK_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/VellmarkClient)
set(VELLMARK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/VellmarkClient)
