# The Windows build: the service against the real SDK headers and import
# libraries, with jsoncpp as built for Windows by scripts/setup-mingw.sh.

find_package(jsoncpp CONFIG)
if(NOT TARGET jsoncpp_static)
  message(FATAL_ERROR "jsoncpp for Windows not found: run scripts/setup-mingw.sh, "
                      "which builds it into build/mingw-deps (the mingw preset's jsoncpp_DIR).")
endif()

# A Unicode build (TCHAR is wchar_t, as on the simulated host) against the
# Windows 10 API level.
add_compile_definitions(UNICODE _UNICODE _WIN32_WINNT=0x0A00 WINVER=0x0A00)

# Import libraries of the Windows components the service calls, and uuid and
# wbemuuid, which define the GUIDs it names (FOLDERID_ProgramData, the WMI
# class and interface ids). The linker records a DLL import only for a
# function actually used, so a library here costs nothing until the service
# calls into it.
set(VEXOR_WINDOWS_IMPORT_LIBRARIES
    ws2_32 iphlpapi psapi setupapi shlwapi ole32 oleaut32 uuid wbemuuid
    winspool advapi32 shell32 userenv)
# The PathCch* import library is missing from older MinGW-w64 releases; there
# only shlwapi's Path* functions are at hand.
find_library(VEXOR_PATHCCH_LIBRARY pathcch)
if(VEXOR_PATHCCH_LIBRARY)
  list(APPEND VEXOR_WINDOWS_IMPORT_LIBRARIES pathcch)
else()
  message(WARNING "This MinGW has no pathcch import library; only shlwapi's path functions can be used.")
endif()

set(VEXOR_PLATFORM_DIR platform/windows)
set(VEXOR_PLATFORM_LIBRARIES ${VEXOR_WINDOWS_IMPORT_LIBRARIES})
set(VEXOR_JSONCPP jsoncpp_static)
