# What `cmake --install` puts in place: the program, and for other projects a package with the venue and the client's side
# as libraries. They write find_package(kavo_me), and link to kavo::venue or kavo::client.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kavo_me)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/kavo_me)

set_target_properties(kavo_memory PROPERTIES EXPORT_NAME venue)
set_target_properties(kavo_client PROPERTIES EXPORT_NAME client)
set_target_properties(kavo_core PROPERTIES EXPORT_NAME core)
set_target_properties(kavo_codecs PROPERTIES EXPORT_NAME codecs)
# A header of the package finds the others beside it.
foreach(library kavo_memory kavo_client kavo_core kavo_codecs)
    target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${header_dir}>)
endforeach()
# A sanitized library makes sanitized programs only.
if(KAVO_SANITIZE)
    target_link_options(kavo_codecs INTERFACE -fsanitize=address,undefined)
endif()

install(TARGETS kavo_me RUNTIME)
install(TARGETS kavo_memory kavo_client kavo_core kavo_codecs EXPORT kavo_me ARCHIVE)
install(DIRECTORY src/ DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY client memory DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
install(EXPORT kavo_me NAMESPACE kavo:: DESTINATION ${package_dir} FILE kavo_meConfig.cmake)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kavo_meConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kavo_meConfigVersion.cmake DESTINATION ${package_dir})
