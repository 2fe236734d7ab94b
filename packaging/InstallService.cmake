# Installs the settings and the systemd unit. Run by the generated install script, which sets `packaging` and `sbindir`.

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(sysconfdir /etc)
else()
  set(sysconfdir ${CMAKE_INSTALL_PREFIX}/etc)
endif()
set(program ${CMAKE_INSTALL_PREFIX}/${sbindir}/sniffer)
set(settings ${sysconfdir}/voip-sniffer)
set(units $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system)

# A second installation must not overwrite the operator's settings. In the packages they are conffiles of dpkg.
foreach(name sniffer.properties log4cxx.properties)
  if(NOT EXISTS $ENV{DESTDIR}${settings}/${name})
    file(INSTALL ${packaging}/${name} DESTINATION ${settings}
      PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()

message(STATUS "Installing: ${units}/voip-sniffer.service")
file(MAKE_DIRECTORY ${units})
configure_file(${packaging}/voip-sniffer.service.in ${units}/voip-sniffer.service @ONLY
  FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
