# Installs beside the programs the DLLs they load that Windows does not bring: Qt Core and the
# compiler's and MinGW's runtime. Which ones is read from the programs' import tables (and the
# DLLs' own, recursively) with the cross objdump; each is looked up in the folders the toolchain
# file names, and whatever none of them holds is taken to be Windows' own (KERNEL32, msvcrt, ...).
set(corebench_windows_programs "$<TARGET_FILE:corebench>")
if(TARGET corebench-fleet)
  list(APPEND corebench_windows_programs "$<TARGET_FILE:corebench-fleet>")
endif()
install(CODE "
  set(CMAKE_GET_RUNTIME_DEPENDENCIES_PLATFORM windows+pe)
  set(CMAKE_GET_RUNTIME_DEPENDENCIES_TOOL objdump)
  set(CMAKE_GET_RUNTIME_DEPENDENCIES_COMMAND \"${CMAKE_OBJDUMP}\")
  file(GET_RUNTIME_DEPENDENCIES
    EXECUTABLES ${corebench_windows_programs}
    DIRECTORIES ${COREBENCH_WINDOWS_DLL_DIRS}
    RESOLVED_DEPENDENCIES_VAR dlls
    UNRESOLVED_DEPENDENCIES_VAR system_dlls)
  if(NOT dlls)
    message(FATAL_ERROR \"corebench: no DLL of the programs found in ${COREBENCH_WINDOWS_DLL_DIRS}\")
  endif()
  list(JOIN system_dlls \" \" system_dlls)
  message(STATUS \"From Windows: \${system_dlls}\")
  file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\" TYPE SHARED_LIBRARY
       FILES \${dlls})
")
