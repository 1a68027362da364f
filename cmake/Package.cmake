# What a studio gets, installed by `cmake --install` and packed by scripts/package.
#
#   strict/, walk-on/     the programs of each build
#   README.md, docs/ ...  the pages and notices
#   SHA256SUMS            of all files but itself, for `sha256sum --check`

install(TARGETS Launcher publish RUNTIME DESTINATION strict)
install(TARGETS Launcher_keep_dirs publish_keep_dirs RUNTIME DESTINATION walk-on)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md THIRD_PARTY_NOTICES.md DESTINATION .)
install(DIRECTORY docs DESTINATION .)
install(CODE [[
  set(folder "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
  file(GLOB_RECURSE files RELATIVE "${folder}" "${folder}/*")
  if(NOT files)
    message(FATAL_ERROR "SHA256SUMS would be empty.")
  endif()
  set(sums "")
  foreach(file IN LISTS files)
    file(SHA256 "${folder}/${file}" sum)
    string(APPEND sums "${sum}  ${file}\n")
  endforeach()
  file(WRITE "${folder}/SHA256SUMS" "${sums}")
]])
