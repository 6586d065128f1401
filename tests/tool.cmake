# The vanta tool's own conventions: --version, COMMAND --help, and "-" reading texts line by line,
# checked against the same texts given one process each.
if(TARGET vanta)
  add_test(NAME tool_conventions
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tool/check-tool.sh $<TARGET_FILE:vanta>)
  set_tests_properties(tool_conventions PROPERTIES LABELS tool TIMEOUT 120
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;TZ=UTC;LC_ALL=C.UTF-8")
endif()
