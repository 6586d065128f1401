# The zip suite drives minizip directly to write and read archives through the library's callbacks.
target_link_libraries(test_zip PRIVATE PkgConfig::MINIZIP)
