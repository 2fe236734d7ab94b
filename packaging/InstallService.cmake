# Installs the settings and the systemd units of a component, and its script. Run by the generated install script, which
# sets `packaging`, `path` of the program below the prefix, `folder` of the settings, `settings_files`, `services`, and,
# when the program is a script, `script` and `jar`.

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(sysconfdir /etc)
else()
  set(sysconfdir ${CMAKE_INSTALL_PREFIX}/etc)
endif()
set(executable ${CMAKE_INSTALL_PREFIX}/${path})
set(settings ${sysconfdir}/${folder})
set(units $ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/systemd/system)

# A second installation must not overwrite the operator's settings. In the packages they are conffiles of dpkg.
foreach(file IN LISTS settings_files)
  get_filename_component(name ${file} NAME)
  if(NOT EXISTS $ENV{DESTDIR}${settings}/${name})
    file(INSTALL ${packaging}/${file} DESTINATION ${settings}
      PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()

foreach(service IN LISTS services)
  get_filename_component(name ${service} NAME)
  message(STATUS "Installing: ${units}/${name}")
  file(MAKE_DIRECTORY ${units})
  configure_file(${packaging}/${service}.in ${units}/${name} @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()

if(script)
  set(jar ${CMAKE_INSTALL_PREFIX}/${jar})
  message(STATUS "Installing: $ENV{DESTDIR}${executable}")
  configure_file(${packaging}/${script}.in $ENV{DESTDIR}${executable} @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endif()
