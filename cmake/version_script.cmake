# Every name of the interface (the lists in tests/exports/) carries the
# version TARVO_1 and everything else is local.  A process that also loads
# another library defining some of the same names (libjpeg's jpeg_*) then
# binds each versioned reference to the library that defines that version,
# whatever the order the libraries were loaded in.
file(GLOB export_lists ${PROJECT_SOURCE_DIR}/tests/exports/*.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${export_lists})
set(TARVO_EXPORTED_NAMES "")
foreach(list IN LISTS export_lists)
  file(STRINGS ${list} names REGEX "^[^#]")
  foreach(name IN LISTS names)
    string(APPEND TARVO_EXPORTED_NAMES "    ${name};\n")
  endforeach()
endforeach()
set(version_script ${PROJECT_BINARY_DIR}/libTarvo.map)
configure_file(${CMAKE_CURRENT_LIST_DIR}/libTarvo.map.in ${version_script} @ONLY)
target_link_options(Tarvo PRIVATE -Wl,--version-script=${version_script})
set_property(TARGET Tarvo APPEND PROPERTY LINK_DEPENDS ${version_script})
