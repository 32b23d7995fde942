# Cross build for Windows x86-64 with Debian's MinGW-w64 compiler in its posix thread model (the
# one Qt's threads are built for). Qt Core and glibm.dll (glibc's trigonometric functions, which
# the kernels call in place of MinGW-w64's) are the ones `scripts/setup --windows` builds into
# /opt/corebench-qt5-mingw/<version> and /opt/corebench-glibm-mingw/<version>
# (COREBENCH_WINDOWS_QT_ROOT and COREBENCH_WINDOWS_GLIBM_ROOT move those folders; the highest
# version there is used); GoogleTest is built from Debian's source package with the project.
# Built programs and tests run through Wine (cmake/wine-run).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# The newest "<root>/<version>" that setup finished (its .built stamp) into prefix_var; root is
# the environment variable root_env when set, else default_root.
function(newest_built_prefix prefix_var root_env default_root what)
  set(root "$ENV{${root_env}}")
  if(NOT root)
    set(root "${default_root}")
  endif()
  file(GLOB stamps "${root}/*/.built")
  if(NOT stamps)
    message(FATAL_ERROR "No ${what} in ${root}: run scripts/setup --windows")
  endif()
  list(SORT stamps COMPARE NATURAL ORDER DESCENDING)
  list(GET stamps 0 stamp)
  get_filename_component(prefix "${stamp}" DIRECTORY)
  set(${prefix_var} "${prefix}" PARENT_SCOPE)
endfunction()

if(NOT COREBENCH_WINDOWS_QT)
  newest_built_prefix(qt_prefix COREBENCH_WINDOWS_QT_ROOT /opt/corebench-qt5-mingw
                      "Qt Core for Windows")
  set(COREBENCH_WINDOWS_QT "${qt_prefix}" CACHE PATH "Qt Core built for x86_64-w64-mingw32")
endif()

# glibm.dll must have been built from this checkout's bench/platform/windows/glibm, of which setup
# keeps a copy beside it.
if(NOT COREBENCH_WINDOWS_GLIBM)
  newest_built_prefix(glibm_prefix COREBENCH_WINDOWS_GLIBM_ROOT /opt/corebench-glibm-mingw
                      "glibm for Windows")
  set(glibm_recipe "${CMAKE_CURRENT_LIST_DIR}/../bench/platform/windows/glibm")
  file(GLOB_RECURSE glibm_files RELATIVE "${glibm_recipe}" "${glibm_recipe}/*")
  foreach(file IN LISTS glibm_files)
    set(built "")
    if(EXISTS "${glibm_prefix}/source/glibm/${file}")
      file(SHA256 "${glibm_prefix}/source/glibm/${file}" built)
    endif()
    file(SHA256 "${glibm_recipe}/${file}" wanted)
    if(NOT built STREQUAL wanted)
      message(FATAL_ERROR "${glibm_prefix} was built from another bench/platform/windows/glibm "
                          "(${file} differs): run scripts/setup --windows")
    endif()
  endforeach()
  set(COREBENCH_WINDOWS_GLIBM "${glibm_prefix}" CACHE PATH "glibm.dll built for x86_64-w64-mingw32")
endif()

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${COREBENCH_WINDOWS_QT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The folders the programs' DLLs come from: Qt's, glibm's, the compiler's runtime (libstdc++,
# libgcc) and MinGW's own (winpthread). Wine finds them through WINEPATH; the package copies them.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++-6.dll
                OUTPUT_VARIABLE gcc_runtime_dll OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(gcc_runtime_dir "${gcc_runtime_dll}" DIRECTORY)
set(COREBENCH_WINDOWS_DLL_DIRS "${COREBENCH_WINDOWS_QT}/bin" "${COREBENCH_WINDOWS_GLIBM}/bin"
    "${gcc_runtime_dir}" /usr/x86_64-w64-mingw32/lib)

string(REPLACE ";" ":" wine_dll_path "${COREBENCH_WINDOWS_DLL_DIRS}")
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run" "${wine_dll_path}")
