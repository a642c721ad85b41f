# Collects the C++ sources below a folder. New files are picked up at the next
# build without editing any CMakeLists. The platform layer of the other
# platform never joins a build.
function(vexor_glob_sources out dir)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS
       ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
  if(WIN32)
    list(FILTER found EXCLUDE REGEX "/platform/simulated/")
  else()
    list(FILTER found EXCLUDE REGEX "/platform/windows/")
  endif()
  set(${out} ${found} PARENT_SCOPE)
endfunction()
