# CMake's view of a Mac, for ../check-macos. PELMAR_MACOS_ARCH is arm64 or x86_64;
# PELMAR_MACOS_TOOLS holds the compiler's wrappers and the libraries' headers and stubs.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PELMAR_MACOS_ARCH PELMAR_MACOS_TOOLS)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22)  # macOS 13
set(CMAKE_SYSTEM_PROCESSOR ${PELMAR_MACOS_ARCH})

set(CMAKE_CXX_COMPILER ${PELMAR_MACOS_TOOLS}/bin/c++-${PELMAR_MACOS_ARCH})
set(CMAKE_AR ${PELMAR_MACOS_TOOLS}/bin/ar)
set(CMAKE_RANLIB ${PELMAR_MACOS_TOOLS}/bin/ranlib)
set(CMAKE_INSTALL_NAME_TOOL /bin/true)  # nothing that is built here is installed

# Nothing of this machine's own: its headers are another C library's.
set(CMAKE_FIND_ROOT_PATH ${PELMAR_MACOS_TOOLS}/libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
