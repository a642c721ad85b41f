# Collects the C++ sources below a folder. New files are picked up at the next
# build without editing any CMakeLists.
function(vexor_glob_sources out dir)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS
       ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
  list(FILTER found EXCLUDE REGEX "/platform/windows/")
  set(${out} ${found} PARENT_SCOPE)
endfunction()
