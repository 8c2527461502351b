# Install rules, the CMake package (find_package(Pelora CONFIG)) and the pkg-config files.
include(CMakePackageConfigHelpers)

install(TARGETS pelora pelora_desktop pelora_testing EXPORT PeloraTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The public headers of every layer land in one tree: pelora/, pelora/platform/, pelora/ui/,
# pelora/desktop/, pelora/testing/.
foreach(_dir include platform/api/include platform/ui/include platform/desktop/include
             platform/testing/include)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${_dir}/pelora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
endforeach()

# The resource bundle, where an installed SDK looks for it when the host has none beside it.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/PeloraSDKBundle.bundle
  DESTINATION ${CMAKE_INSTALL_DATADIR}/pelora)

# The tool and the sandbox ad server with its inventory, creatives and inspector page.
foreach(_t pelora_cli pelora_sandbox)
  if(TARGET ${_t})
    install(TARGETS ${_t} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/sandbox/inventory ${PROJECT_SOURCE_DIR}/tools/sandbox/creatives
  ${PROJECT_SOURCE_DIR}/tools/sandbox/web DESTINATION ${CMAKE_INSTALL_DATADIR}/pelora/sandbox)

set(PELORA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Pelora)
install(EXPORT PeloraTargets NAMESPACE Pelora:: DESTINATION ${PELORA_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PeloraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/PeloraConfig.cmake INSTALL_DESTINATION ${PELORA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PeloraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PeloraConfig.cmake ${PROJECT_BINARY_DIR}/PeloraConfigVersion.cmake
  DESTINATION ${PELORA_CMAKE_DIR})

# pkg-config: a static link needs the private dependencies too (pkg-config --static).
if(BUILD_SHARED_LIBS)
  set(PELORA_PC_PRIVATE_LIBS "")
else()
  set(PELORA_PC_PRIVATE_LIBS "-lsimdjson")
endif()
# The prefix is found from the .pc file's own place, so an installed tree can move (a staging
# prefix, a package built with DESTDIR).
file(RELATIVE_PATH _pc_up "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" _pc_up "${_pc_up}")
set(PELORA_PC_PREFIX "\${pcfiledir}/${_pc_up}")
foreach(_pc pelora pelora-desktop)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${_pc}.pc.in ${PROJECT_BINARY_DIR}/${_pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${_pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
