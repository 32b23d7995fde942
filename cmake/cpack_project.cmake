# Read by cpack once for each generator, before it installs the tree to package. An archive's tree
# is installed with CPack's staging folder as its prefix, so that what names a full path (the
# systemd units) would name the staging folder: it names the build's install prefix instead, the
# folder the tree is meant to be unpacked into.
if(CPACK_GENERATOR MATCHES "^(TGZ|ZIP)$")
  set(ENV{COREBENCH_UNIT_PREFIX} "${CPACK_COREBENCH_INSTALL_PREFIX}")
else()
  unset(ENV{COREBENCH_UNIT_PREFIX})
endif()
