# Builds for arm64 against a folder made by cmake/make-arm64-sysroot, and runs what was built under
# qemu's user mode.
#
#     apt-get install g++-aarch64-linux-gnu qemu-user
#     cmake/make-arm64-sysroot build/arm64-sysroot
#     cmake --preset arm64 && cmake --build --preset arm64   (or cmake/arm64-check for all of it)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(KUB_ARM64_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot CACHE PATH
    "Folder with Debian's arm64 packages")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KUB_ARM64_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${KUB_ARM64_SYSROOT} REALPATH)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;${CMAKE_SYSROOT})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

# Qt's own tools, such as moc, run on the build machine.
set(QT_HOST_PATH /usr CACHE PATH "Qt of the build machine")
file(GLOB qt_host_cmake /usr/lib/*-linux-gnu/cmake)
set(QT_HOST_PATH_CMAKE_DIR ${qt_host_cmake} CACHE PATH "CMake files of the build machine's Qt")
