# Runs at an installation, once for each package: puts the paths into what names some, compresses changelogs and manual
# pages, and installs them.
set(prefix ${CMAKE_INSTALL_PREFIX})
foreach(name IN ITEMS sbindir libdir datadir)
  string(TOUPPER CMAKE_INSTALL_${name} variable)
  set(${name} ${${variable}})
endforeach()
set(made ${CMAKE_CURRENT_BINARY_DIR}/install)

# configured FILE DIRECTORY NAME: the file with its paths, under another name.
function(configured file directory name)
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/${file} ${made}/${file}/${name} @ONLY)
  file(INSTALL ${made}/${file}/${name} DESTINATION ${directory})
endfunction()

# compressed FILE DIRECTORY
function(compressed file directory)
  cmake_path(GET file FILENAME name)
  execute_process(COMMAND ${ZT_GZIP} -9nc ${file} OUTPUT_FILE ${made}/${name}.gz COMMAND_ERROR_IS_FATAL ANY)
  file(INSTALL ${made}/${name}.gz DESTINATION ${directory})
endfunction()

# Debian wants a changelog of its own form. Its date is SOURCE_DATE_EPOCH, when that is set.
if(prefix STREQUAL "/usr")
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog ${made}/changelog.Debian @ONLY)
  compressed(${made}/changelog.Debian ${prefix}/${CMAKE_INSTALL_DATADIR}/doc/${package})
endif()
if(NOT package STREQUAL vrx-sca)
  return()
endif()

if(prefix STREQUAL "/usr")
  configured(vrx-sca.default /etc/default vrx-sca)
  configured(vrx-sca.logrotate /etc/logrotate.d vrx-sca)
else()
  configured(vrx-sca.default ${prefix}/${docdir}/examples vrx-sca.default)
  configured(vrx-sca.logrotate ${prefix}/${docdir}/examples vrx-sca.logrotate)
endif()
configured(vrx-sca.service ${prefix}/lib/systemd/system vrx-sca.service)

foreach(section IN ITEMS 1 8)
  file(GLOB pages ${CMAKE_CURRENT_SOURCE_DIR}/man/*.${section})
  foreach(page IN LISTS pages)
    compressed(${page} ${prefix}/${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
endforeach()
