# ve_program(TARGET BUILD NAME name DESCRIPTION text MANIFEST template [ICON file] [FOLDER folder])
#
# Makes the executable TARGET, which the caller has added, one build of a program: NAME.exe in a
# sub-folder of the build directory, with a version resource, a manifest and an icon.
#
#   BUILD        build_strict, build_keep_dirs or build_next (updater/CMakeLists.txt)
#   DESCRIPTION  what Windows shows for the program
#   MANIFEST     the manifest; @version@ in it is replaced by the version
#   FOLDER       of the build directory
function(ve_program target build)
  cmake_parse_arguments(PARSE_ARGV 2 program "" "NAME;DESCRIPTION;MANIFEST;ICON;FOLDER" "")
  get_target_property(version ${build} LAUNCHER_VERSION)
  get_target_property(keeps_nonempty_directories ${build} LAUNCHER_KEEPS_NONEMPTY_DIRECTORIES)
  # A variation of the program with the same version, and what differs (see VERSIONINFO).
  set(file_flags 0)
  set(special_build "")
  if(keeps_nonempty_directories)
    set(file_flags VS_FF_SPECIALBUILD)
    set(special_build "VALUE \"SpecialBuild\", \"keeps non-empty directories\\0\"")
  endif()
  set(resources "${CMAKE_CURRENT_BINARY_DIR}/${target}_resources")
  set(manifest "${resources}/program.manifest")
  configure_file("${program_MANIFEST}" "${manifest}" @ONLY)
  set(icon "")
  if(program_ICON)
    set(icon "1 ICON \"${program_ICON}\"")
  endif()
  configure_file("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/program.rc.in" "${resources}/program.rc" @ONLY)
  set_source_files_properties("${resources}/program.rc" PROPERTIES OBJECT_DEPENDS
                                                                   "${manifest};${program_ICON}")
  target_sources(${target} PRIVATE "${resources}/program.rc")
  target_link_libraries(${target} PRIVATE ${build} ve_warnings)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${program_NAME}
                        RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${program_FOLDER}")
  if(MSVC)
    target_link_options(${target} PRIVATE /MANIFEST:NO)  # The resources hold it.
  endif()
endfunction()
