# Compiles for the Debian architecture TAGBRIDGE_ARCHITECTURE, whose names for the GNU tools, for
# libraries and for processors the file that includes this has set, against the root that
# tools/sysroot.sh has made. CMake reads it once for each compiler that it tries.
set(CMAKE_SYSTEM_NAME Linux)
cmake_path(SET root NORMALIZE
  "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${TAGBRIDGE_ARCHITECTURE}")
if(NOT EXISTS ${root}/done)
  message(FATAL_ERROR "${root} is not there: run ./dev test --arch ${TAGBRIDGE_ARCHITECTURE}")
endif()

set(CMAKE_CXX_COMPILER ${gnu_triplet}-g++)
set(CMAKE_SYSROOT ${root})
set(CMAKE_LIBRARY_ARCHITECTURE ${library_folder})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/${library_folder}/pkgconfig:${root}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
