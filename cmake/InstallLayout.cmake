# Where `cmake --install` puts things (relative to the prefix). Shared by Install.cmake and the
# programs that find their installed files relative to themselves.
include(GNUInstallDirs)
# Plug-ins live in a directory of their own, not on the linker's search path: hosts dlopen them.
set(MDH_PLUGIN_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/MonoDebuggerHandling)
set(MDH_SAMPLE_INSTALL_DIR ${MDH_PLUGIN_INSTALL_DIR}/sample)
set(MDH_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/MonoDebuggerHandling)
set(MDH_PKGCONFIG_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(MDH_PLUGIN_FILE_NAME
    ${CMAKE_SHARED_MODULE_PREFIX}MonoDebuggerHandling${CMAKE_SHARED_MODULE_SUFFIX})
