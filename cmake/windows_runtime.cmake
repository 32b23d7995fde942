# Installs beside the programs the DLLs they load that Windows does not bring: Qt Core and the
# compiler's and MinGW's runtime. Which ones is read from the programs' import tables (and the
# DLLs' own, in turn) with the cross objdump; each is looked up in the folders the toolchain file
# names, and whatever none of them holds is taken to be Windows' own (KERNEL32, msvcrt, ...).
# CMake lower-cases the names it reads for Windows, so the folders are searched ignoring case.
set(corebench_windows_programs "$<TARGET_FILE:corebench>")
if(TARGET corebench-fleet)
  list(APPEND corebench_windows_programs "$<TARGET_FILE:corebench-fleet>")
endif()
install(CODE "
  cmake_policy(SET CMP0057 NEW)
  set(CMAKE_GET_RUNTIME_DEPENDENCIES_PLATFORM windows+pe)
  set(CMAKE_GET_RUNTIME_DEPENDENCIES_TOOL objdump)
  set(CMAKE_GET_RUNTIME_DEPENDENCIES_COMMAND \"${CMAKE_OBJDUMP}\")
  set(available \"\")
  foreach(dir ${COREBENCH_WINDOWS_DLL_DIRS})
    file(GLOB in_dir \"\${dir}/*.dll\" \"\${dir}/*.DLL\")
    list(APPEND available \${in_dir})
  endforeach()
  set(dlls \"\")
  set(system_dlls \"\")
  set(readers ${corebench_windows_programs})
  set(kind EXECUTABLES)
  while(readers)
    file(GET_RUNTIME_DEPENDENCIES \${kind} \${readers}
         UNRESOLVED_DEPENDENCIES_VAR names CONFLICTING_DEPENDENCIES_PREFIX conflicts)
    set(readers \"\")
    set(kind LIBRARIES)
    foreach(name IN LISTS names)
      set(found \"\")
      foreach(candidate IN LISTS available)
        get_filename_component(candidate_name \"\${candidate}\" NAME)
        string(TOLOWER \"\${candidate_name}\" candidate_name)
        if(candidate_name STREQUAL name)
          set(found \"\${candidate}\")
          break()
        endif()
      endforeach()
      if(NOT found)
        list(APPEND system_dlls \${name})
      elseif(NOT found IN_LIST dlls)
        list(APPEND dlls \"\${found}\")
        list(APPEND readers \"\${found}\")
      endif()
    endforeach()
  endwhile()
  list(REMOVE_DUPLICATES system_dlls)
  list(JOIN system_dlls \" \" system_text)
  message(STATUS \"DLLs from Windows: \${system_text}\")
  file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\" TYPE SHARED_LIBRARY
       FILES \${dlls})
  # Debian's runtime DLLs keep their debugging symbols (libstdc++ is 23 MB with them, 2 without).
  foreach(dll IN LISTS dlls)
    get_filename_component(name \"\${dll}\" NAME)
    execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-unneeded
                            \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/\${name}\"
                    RESULT_VARIABLE failed)
    if(failed)
      message(FATAL_ERROR \"could not strip \${name}\")
    endif()
  endforeach()
")

# glibm.dll is LGPL-2.1-or-later: the source it was built from goes with it, glibc's files with the
# licence and the folder that builds it, so that anyone can build it again, changed, and replace it.
install(DIRECTORY "${COREBENCH_WINDOWS_GLIBM}/source/" DESTINATION glibm-source)
