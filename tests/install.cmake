# Installs the library into a temporary prefix and builds a consumer against it, through
# find_package(VantaBase) and through pkg-config. Not run in sanitizer builds: the consumer is
# built without the sanitizer runtime.
if(NOT VANTA_SANITIZE)
  add_test(NAME install_consumer
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/install/check-install.sh
            ${CMAKE_BINARY_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/install/consumer ${CMAKE_COMMAND})
  set_tests_properties(install_consumer PROPERTIES LABELS install TIMEOUT 600)
endif()
