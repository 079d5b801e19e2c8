# The installable library, its CMake package and pkg-config file, the
# install rules and the Debian package.
#
# A host links OrlaPlugins::plugins: one library (static, or shared with
# BUILD_SHARED_LIBS) made of the same objects as the internal libraries the
# tests and `orla` link, so nothing is compiled twice. The objects are built
# with hidden visibility; what a shared library exports is what the public
# headers declare (the ORLA_EXPORT namespace of include/orla/export.h).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ORLA_CORE_TARGETS orla_models orla_platform orla_plugins)
set_target_properties(${ORLA_CORE_TARGETS} PROPERTIES
  CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON POSITION_INDEPENDENT_CODE ON)
target_include_directories(orla_options INTERFACE ${PROJECT_BINARY_DIR}/include)

# The version, in one place: project() above.
configure_file(${PROJECT_SOURCE_DIR}/cmake/version.h.in ${PROJECT_BINARY_DIR}/include/orla/version.h @ONLY)
file(WRITE ${PROJECT_BINARY_DIR}/orla-version "${PROJECT_VERSION}")

# Where the companions of the library (the JavaScript worker, the modules it
# loads at run time) are installed, relative to the program or the library
# that looks for them, so that a prefix moved as a whole (a package, a
# staging folder) still finds them; the absolute paths are the last resort.
set(ORLA_INSTALL_MODULEDIR "${CMAKE_INSTALL_LIBDIR}/orla")
file(RELATIVE_PATH ORLA_MODULES_FROM_BIN ${CMAKE_INSTALL_FULL_BINDIR} "${CMAKE_INSTALL_PREFIX}/${ORLA_INSTALL_MODULEDIR}")
file(RELATIVE_PATH ORLA_MODULES_FROM_LIB ${CMAKE_INSTALL_FULL_LIBDIR} "${CMAKE_INSTALL_PREFIX}/${ORLA_INSTALL_MODULEDIR}")
file(RELATIVE_PATH ORLA_BIN_FROM_LIB ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_BINDIR})
# Only the file that uses them gets them, so another prefix rebuilds one file.
set_source_files_properties(${PROJECT_SOURCE_DIR}/platform/posix/install_locations.cpp PROPERTIES COMPILE_DEFINITIONS
  "ORLA_MODULES_FROM_BIN=\"${ORLA_MODULES_FROM_BIN}\";ORLA_MODULES_FROM_LIB=\"${ORLA_MODULES_FROM_LIB}\";\
ORLA_BIN_FROM_LIB=\"${ORLA_BIN_FROM_LIB}\";ORLA_INSTALLED_MODULEDIR=\"${CMAKE_INSTALL_PREFIX}/${ORLA_INSTALL_MODULEDIR}\";\
ORLA_INSTALLED_BINDIR=\"${CMAKE_INSTALL_FULL_BINDIR}\"")

add_library(orla_library
  $<TARGET_OBJECTS:orla_models> $<TARGET_OBJECTS:orla_platform> $<TARGET_OBJECTS:orla_plugins>)
add_library(OrlaPlugins::plugins ALIAS orla_library)
# 0.x: every minor version may change the interface, so it names the ABI.
set_target_properties(orla_library PROPERTIES
  OUTPUT_NAME orlaplugins EXPORT_NAME plugins LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
target_compile_features(orla_library PUBLIC cxx_std_20)
target_include_directories(orla_library PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# The public headers use ICU, nlohmann-json and threads; the rest is private
# (a static library still carries it to the host's link line). libcurl,
# libcups, libzip, GIO, GTK and the X11 libraries are the modules' own.
target_link_libraries(orla_library PUBLIC ICU::uc ICU::i18n nlohmann_json::nlohmann_json Threads::Threads
                      PRIVATE uriparser::uriparser simdjson::simdjson ${CMAKE_DL_LIBS})
if(TARGET orla_desktop)
  add_dependencies(orla_library orla_x11 orla_desktop)
endif()
if(BUILD_SHARED_LIBS AND NOT ORLA_SANITIZE AND NOT ORLA_SANITIZE_THREAD AND NOT ORLA_FUZZ)
  # A dependency missing from the lists above fails here, not in a host.
  target_link_options(orla_library PRIVATE LINKER:--no-undefined)
endif()

# Everything a host needs: the library, the public headers, the package.
install(TARGETS orla_library EXPORT OrlaPluginsTargets
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/orla DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/include/orla/version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orla)
install(EXPORT OrlaPluginsTargets NAMESPACE OrlaPlugins:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrlaPlugins)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OrlaPluginsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OrlaPluginsConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrlaPlugins)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OrlaPluginsConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OrlaPluginsConfig.cmake ${PROJECT_BINARY_DIR}/OrlaPluginsConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrlaPlugins)
file(RELATIVE_PATH ORLA_PC_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" ${CMAKE_INSTALL_PREFIX})
# A static library needs its private dependencies on every link, and
# `pkg-config --static` would also ask for the static libraries of theirs,
# which Debian does not install: so they are plain requirements there.
set(ORLA_PC_PUBLIC "icu-uc icu-i18n nlohmann_json")
set(ORLA_PC_PRIVATE "liburiparser simdjson")
if(BUILD_SHARED_LIBS)
  set(ORLA_PC_REQUIRES "${ORLA_PC_PUBLIC}")
  set(ORLA_PC_REQUIRES_PRIVATE "${ORLA_PC_PRIVATE}")
  set(ORLA_PC_LIBS "")
  set(ORLA_PC_LIBS_PRIVATE "-ldl -pthread")
else()
  set(ORLA_PC_REQUIRES "${ORLA_PC_PUBLIC} ${ORLA_PC_PRIVATE}")
  set(ORLA_PC_REQUIRES_PRIVATE "")
  set(ORLA_PC_LIBS "-ldl -pthread")
  set(ORLA_PC_LIBS_PRIVATE "")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/orla-plugins.pc.in ${PROJECT_BINARY_DIR}/orla-plugins.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orla-plugins.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Modules loaded at run time (dlopen) go to <libdir>/orla, one line each.
function(orla_install_module target)
  install(TARGETS ${target} LIBRARY DESTINATION ${ORLA_INSTALL_MODULEDIR})
endfunction()
foreach(module orla_gtk orla_curl orla_cups orla_zip orla_x11 orla_desktop)
  if(TARGET ${module})
    orla_install_module(${module})
  endif()
endforeach()

# The man page, made from the command-line reference at build time, and the
# shell completions.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/orla.1
  COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/scripts/md2man ${PROJECT_SOURCE_DIR}/docs/cli.md
          ${PROJECT_VERSION} ${PROJECT_BINARY_DIR}/orla.1
  DEPENDS ${PROJECT_SOURCE_DIR}/scripts/md2man ${PROJECT_SOURCE_DIR}/docs/cli.md VERBATIM)
add_custom_target(orla_docs ALL DEPENDS ${PROJECT_BINARY_DIR}/orla.1)
install(FILES ${PROJECT_BINARY_DIR}/orla.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/tools/orla/completions/orla.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME orla)
install(FILES ${PROJECT_SOURCE_DIR}/tools/orla/completions/_orla
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

# The Debian package of the whole: `cpack -G DEB` in a build configured with
# CMAKE_INSTALL_PREFIX=/usr (the ci preset is).
set(CPACK_PACKAGE_NAME orla)
set(CPACK_PACKAGE_VENDOR "OrlaPlugins")
set(CPACK_PACKAGE_CONTACT "OrlaPlugins developers <orla@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Action plugins of a hotkey and automation application, and the orla host")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
# What is linked is found by dpkg-shlibdeps; what is loaded at run time
# (dlopen) or run as a program is declared here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libsecret-1-0, libpulse0, libsndfile1, libespeak-ng1, zip, unzip, zsh")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "cups-client, cups-bsd, gnome-keyring, dconf-gsettings-backend, gvfs-backends, gvfs-fuse")
include(CPack)
