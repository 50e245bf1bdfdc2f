# What `cmake --install` puts under the prefix:
#   bin/folivox, bin/folivox-app         the command line and the window
#   libexec/folivox/mp4tags|mp4art|mp4chaps
#                                        the mp4 tools, where the programs look
#                                        for them (<bin>/../libexec/folivox)
#   share/applications/folivox-app.desktop, share/icons/.../folivox.svg
include(GNUInstallDirs)

install(TARGETS folivox RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET folivox-app)
  install(TARGETS folivox-app RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/src/app/resources/folivox-app.desktop
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${PROJECT_SOURCE_DIR}/src/app/resources/folivox.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()
foreach(tool mp4tags mp4art mp4chaps)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/folivox)
  endif()
endforeach()
