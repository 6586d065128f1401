# Suites that need a second process start childprocess: a settings saver they kill mid-save, a
# reader after a restart, and programs without a Qt application object or with a console one.
add_executable(childprocess ${CMAKE_CURRENT_SOURCE_DIR}/childprocess/main.cpp)
vanta_link_internals(childprocess)
foreach(suite test_settingsstore test_memorywindow test_binres test_messagebox)
  add_dependencies(${suite} childprocess)
  target_compile_definitions(${suite} PRIVATE VANTA_CHILD_PROCESS="$<TARGET_FILE:childprocess>")
endforeach()
