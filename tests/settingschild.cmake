# The settings suites start settingschild as a second process: a saver they kill mid-save, a
# reader after a restart, and a program without a Qt application object.
add_executable(settingschild ${CMAKE_CURRENT_SOURCE_DIR}/settingschild/main.cpp)
target_link_libraries(settingschild PRIVATE vantabase)
foreach(suite test_settingsstore test_memorywindow)
  add_dependencies(${suite} settingschild)
  target_compile_definitions(${suite} PRIVATE VANTA_SETTINGS_CHILD="$<TARGET_FILE:settingschild>")
endforeach()
