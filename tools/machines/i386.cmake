# Little-endian, 32 bits. An amd64 machine runs its programs itself, with the loader and libraries
# below the root: the older kind of path to them holds for the libraries of libraries too.
set(TAGBRIDGE_ARCHITECTURE i386)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(gnu_triplet i686-linux-gnu)
set(library_folder i386-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/ld-linux.so.2 \
-Wl,--disable-new-dtags,-rpath,${CMAKE_SYSROOT}/usr/lib/${library_folder}")
