# Helpers shared by the family directories.
#
# Every family directory adds its sources to the object library `qor_kernel_objs`
# with qor_family_sources() and names the export-list files that hold its ABI
# names (one name a line, '#' starts a comment) with qor_add_exports().  The
# kernel library's version script and the exported-symbol test are both built
# from the union of those lists.

set_property(GLOBAL PROPERTY QOR_EXPORT_LISTS "")

function(qor_add_exports)
  foreach(f IN LISTS ARGN)
    get_filename_component(abs "${f}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
    set_property(GLOBAL APPEND PROPERTY QOR_EXPORT_LISTS "${abs}")
  endforeach()
endfunction()

# Globs the C++ sources below the calling directory into the kernel objects.
# Files whose names end in _aes.cpp or _rdrand.cpp get the instruction-set flag
# they need; nothing else may use those instructions, and callers reach them
# only after a CPUID check.
function(qor_family_sources)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS
       "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  foreach(s IN LISTS srcs)
    if(s MATCHES "_aes\\.cpp$")
      set_source_files_properties(${s} TARGET_DIRECTORY qor_kernel_objs PROPERTIES COMPILE_OPTIONS "-maes")
    elseif(s MATCHES "_rdrand\\.cpp$")
      set_source_files_properties(${s} TARGET_DIRECTORY qor_kernel_objs PROPERTIES COMPILE_OPTIONS "-mrdrnd")
    endif()
  endforeach()
  target_sources(qor_kernel_objs PRIVATE ${srcs})
  if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/exports.list")
    qor_add_exports("${CMAKE_CURRENT_SOURCE_DIR}/exports.list")
  endif()
endfunction()
