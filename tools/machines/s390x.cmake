# Big-endian, 64 bits. Its programs run in QEMU, which looks for their libraries below the root.
set(TAGBRIDGE_ARCHITECTURE s390x)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(gnu_triplet s390x-linux-gnu)
set(library_folder s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x -L ${CMAKE_SYSROOT})
