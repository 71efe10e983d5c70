# What `cmake --install` lays down, by the name of the package that each part goes to:
#     libzamc0      the library
#     libzamc-dev   what a build against it takes: headers, zamc.pc, zamcConfig.cmake, the built-in modules, examples
#     zamd zamctl   the programs, each with what belongs to it
# Everything stands below the prefix, and what is installed finds its own prefix when it is moved.
include(CMakePackageConfigHelpers)

set(CMAKE_SKIP_INSTALL_RPATH ON)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(ZAMC_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/zamc)
set(ZAMC_PCDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(generated ${PROJECT_BINARY_DIR}/generated)

install(TARGETS zamc EXPORT zamcTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libzamc0 NAMELINK_COMPONENT libzamc-dev)
install(DIRECTORY include/zamc DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT libzamc-dev
        FILES_MATCHING PATTERN *.h)
install(DIRECTORY yang DESTINATION ${CMAKE_INSTALL_DATADIR}/zamc COMPONENT libzamc-dev FILES_MATCHING PATTERN *.yang)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT libzamc-dev
        FILES_MATCHING PATTERN *.c PATTERN *.h PATTERN *.yang PATTERN CMakeLists.txt)
install(FILES docs/man/zamc.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT libzamc-dev)

# For CMake: find_package(zamc), target zamc::zamc.
install(EXPORT zamcTargets NAMESPACE zamc:: DESTINATION ${ZAMC_CMAKEDIR} COMPONENT libzamc-dev)
configure_package_config_file(cmake/zamcConfig.cmake.in ${generated}/zamcConfig.cmake
                              INSTALL_DESTINATION ${ZAMC_CMAKEDIR} PATH_VARS CMAKE_INSTALL_DATADIR)
write_basic_package_version_file(${generated}/zamcConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${generated}/zamcConfig.cmake ${generated}/zamcConfigVersion.cmake
        DESTINATION ${ZAMC_CMAKEDIR} COMPONENT libzamc-dev)

# For everybody else: pkg-config. It names its directories from where it lies itself.
foreach(directory LIBDIR INCLUDEDIR DATADIR)
    file(RELATIVE_PATH ZAMC_PC_${directory} ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_${directory}})
endforeach()
file(RELATIVE_PATH ZAMC_PC_PREFIX ${CMAKE_INSTALL_PREFIX}/${ZAMC_PCDIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ZAMC_PC_PREFIX ${ZAMC_PC_PREFIX})
configure_file(cmake/zamc.pc.in ${generated}/zamc.pc @ONLY)
install(FILES ${generated}/zamc.pc DESTINATION ${ZAMC_PCDIR} COMPONENT libzamc-dev)

if(ZAMC_BUILD_SERVER)
    install(TARGETS zamctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT zamctl)
    install(FILES docs/man/zamctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT zamctl)
    install(FILES tools/zamctl/completion.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
            RENAME zamctl COMPONENT zamctl)

    install(TARGETS zamd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT zamd)
    install(FILES docs/man/zamd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT zamd)
    set(ZAMD_SERVICE_TYPE exec)
    if(ZAMC_SYSTEMD)
        set(ZAMD_SERVICE_TYPE notify)
    endif()
    configure_file(server/zamd.service.in ${generated}/zamd.service @ONLY)
    configure_file(server/zamd.sysusers ${generated}/zamd.conf COPYONLY)
    install(FILES ${generated}/zamd.service DESTINATION lib/systemd/system COMPONENT zamd)
    install(FILES ${generated}/zamd.conf DESTINATION lib/sysusers.d COMPONENT zamd)
endif()
