# Cross build for arm64 Linux with Debian's aarch64-linux-gnu compiler. Qt Core and GoogleTest come
# from the arm64 sysroot that `scripts/setup --arm64` unpacks into build-aarch64-sysroot/; the C and
# C++ libraries and their headers are the cross compiler's own. Built programs and tests run
# through qemu-aarch64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

get_filename_component(COREBENCH_ARM64_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build-aarch64-sysroot"
                       ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH "${COREBENCH_ARM64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt Core's own libraries (ICU, GLib, ...) are found at link time in the sysroot.
foreach(dir lib/aarch64-linux-gnu usr/lib/aarch64-linux-gnu)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${COREBENCH_ARM64_SYSROOT}/${dir}")
endforeach()

# -L makes qemu's arm64 loader and libraries those of the sysroot. ctest and gtest_discover_tests
# start the test programs through it.
find_program(COREBENCH_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${COREBENCH_QEMU_AARCH64}" -L "${COREBENCH_ARM64_SYSROOT}")

# Qt's cmake files in the sysroot name its arm64 moc, rcc and qmake, which cannot run on the build
# machine (and are not unpacked). They define these targets only where they do not exist yet, so
# defining them here first makes the build use the host's tools, whose output is the same for
# every architecture.
foreach(tool moc rcc qmake)
  if(NOT TARGET Qt5::${tool})
    find_program(COREBENCH_HOST_QT5_${tool} ${tool} PATHS /usr/lib/qt5/bin NO_DEFAULT_PATH REQUIRED)
    add_executable(Qt5::${tool} IMPORTED GLOBAL)
    set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION
                                                  "${COREBENCH_HOST_QT5_${tool}}")
  endif()
endforeach()
