# Packages of everything the install rules install: each program of the project only needs its
# own install(TARGETS ...) line to be in them. Runtime dependencies are computed from the
# binaries (dpkg-shlibdeps for the .deb, rpmbuild's automatic requirements for the .rpm), so a
# node gets the Qt Core runtime and nothing for building. scripts/package builds them.

set(COREBENCH_PACKAGE_MAINTAINER "corebench maintainers <corebench@korvo.invalid>"
    CACHE STRING "Maintainer named in the packages: set your farm's contact")
set(COREBENCH_PACKAGE_LICENSE "Proprietary" CACHE STRING "Licence named in the packages")

set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "Korvo")
set(CPACK_PACKAGE_CONTACT ${COREBENCH_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "CPU benchmark for the nodes of a render farm")
# Lines of at most 80 characters, as Debian's control files want them.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
  "corebench runs a fixed arithmetic workload on one thread per logical CPU, or on"
  "one thread, scores it in PS per thread and for the whole machine, and prints a"
  "report of the processor taken while its cores are loaded. On request it returns"
  "the score as its exit code, so that a farm job can read it without parsing text."
  "Scores are comparable between machines only when they come from the same build,"
  "which is what these packages provide. The companion corebench-fleet runs it as a"
  "farm job, keeps each run as a JSON record, finds slow nodes among the records of"
  "many and writes the scores for Prometheus' node exporter, with rules that alert"
  "on slow, drifting and stale nodes.")
set(CPACK_PACKAGE_FILE_NAME "${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/cpack_project.cmake)
set(CPACK_COREBENCH_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(CPACK_GENERATOR DEB RPM TGZ)
elseif(WIN32)
  # A .zip to unpack anywhere on a node: the programs beside the DLLs they load.
  set(CPACK_GENERATOR ZIP)
  include(${CMAKE_CURRENT_LIST_DIR}/windows_runtime.cmake)
  # And an .msi of the same files for Program Files, made from the .zip by cmake/msi.cmake with
  # wixl, as CPack has no generator for it: `cmake --build BUILD --target msi` makes both in
  # BUILD/packages.
  set(corebench_packages ${CMAKE_BINARY_DIR}/packages)
  add_custom_target(msi
    COMMAND ${CMAKE_COMMAND} -E remove_directory ${corebench_packages}
    COMMAND ${CMAKE_CPACK_COMMAND} --config ${CMAKE_BINARY_DIR}/CPackConfig.cmake
            -B ${corebench_packages}
    COMMAND ${CMAKE_COMMAND} -DZIP=${corebench_packages}/${CPACK_PACKAGE_FILE_NAME}.zip
            -DOUTPUT=${corebench_packages}/${CPACK_PACKAGE_FILE_NAME}.msi
            -DVERSION=${PROJECT_VERSION} -DVENDOR=${CPACK_PACKAGE_VENDOR}
            -DSUMMARY=${CPACK_PACKAGE_DESCRIPTION_SUMMARY} -P ${CMAKE_CURRENT_LIST_DIR}/msi.cmake
    VERBATIM)
  add_dependencies(msi corebench)
  if(TARGET corebench-fleet)
    add_dependencies(msi corebench-fleet)
  endif()
else()
  set(CPACK_GENERATOR TGZ)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_RPM_PACKAGE_LICENSE ${COREBENCH_PACKAGE_LICENSE})
set(CPACK_RPM_PACKAGE_GROUP "Applications/System")
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_RPM_PACKAGE_AUTOREQ ON)
# Build-id links only help with a debuginfo package, which there is not; without them the
# package owns no directories under /usr/lib.
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _build_id_links none")
# systemd's folders are systemd's: the package owns its units, not the folders they go in.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /usr/lib/systemd /usr/lib/systemd/system)

include(CPack)
