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
foreach(page IN LISTS pages)
  cmake_path(GET page EXTENSION LAST_ONLY section)
  string(SUBSTRING ${section} 1 -1 section)
  compressed(${CMAKE_CURRENT_SOURCE_DIR}/man/${page} ${prefix}/${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# setting FILE DIRECTORY NAME: the same in /etc, or among the examples.
function(setting file directory name)
  if(prefix STREQUAL "/usr")
    configured(${file} ${directory} ${name})
  else()
    configured(${file} ${prefix}/${CMAKE_INSTALL_DATADIR}/doc/${package}/examples ${file})
  endif()
endfunction()
if(package STREQUAL vrx-sca)
  setting(vrx-sca.default /etc/default vrx-sca)
  setting(vrx-sca.logrotate /etc/logrotate.d vrx-sca)
  configured(vrx-sca.service ${prefix}/lib/systemd/system vrx-sca.service)
elseif(package STREQUAL vrx-sn)
  setting(vrx-sn.conf /etc/vrx-sca vrx-sn.conf)
  configured(vrx-sn.service ${prefix}/lib/systemd/system vrx-sn.service)
elseif(package STREQUAL vrx-web)
  setting(vrx-web.conf /etc/vrx-sca vrx-web.conf)
  configured(vrx-web.service ${prefix}/lib/systemd/system vrx-web.service)
endif()
