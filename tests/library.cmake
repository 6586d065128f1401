# The loader suite loads a small plugin from a fake install folder: <dir>/libvantatestplugin.so,
# and the same plugin as <dir>/pluginslib/vantatestplugin.so for a name with a folder part.
set(VANTA_TEST_PLUGIN_DIR ${CMAKE_CURRENT_BINARY_DIR}/plugin-install)
add_library(vantatestplugin MODULE ${CMAKE_CURRENT_SOURCE_DIR}/plugin/testplugin.cpp)
set_target_properties(vantatestplugin PROPERTIES
  PREFIX "lib"
  LIBRARY_OUTPUT_DIRECTORY ${VANTA_TEST_PLUGIN_DIR})
add_custom_command(TARGET vantatestplugin POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E make_directory ${VANTA_TEST_PLUGIN_DIR}/pluginslib
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:vantatestplugin>
          ${VANTA_TEST_PLUGIN_DIR}/pluginslib/vantatestplugin.so)
add_dependencies(test_library vantatestplugin)
target_compile_definitions(test_library PRIVATE VANTA_TEST_PLUGIN_DIR="${VANTA_TEST_PLUGIN_DIR}")
