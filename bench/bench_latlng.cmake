# The coordinate benchmark compares with GeographicLib's DMS decoder (Debian libgeographiclib-dev).
pkg_check_modules(GEOGRAPHICLIB REQUIRED IMPORTED_TARGET geographiclib)
target_link_libraries(bench_latlng PRIVATE PkgConfig::GEOGRAPHICLIB)
