# The vanta tool's own conventions: --version, COMMAND --help, and "-" reading texts line by line,
# checked against the same texts given one process each.
if(TARGET vanta)
  add_test(NAME tool_conventions
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/tool/check-tool.sh $<TARGET_FILE:vanta>)
  set_tests_properties(tool_conventions PROPERTIES LABELS tool TIMEOUT 120
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;TZ=UTC;LC_ALL=C.UTF-8")

  # vanta dict prints every entry, NUL bytes included, as the manual page says.
  add_test(NAME tool.dict_prints_nul_bytes
    COMMAND sh -c "printf '<1> <a\\000b>\\r\\n<2> <c>\\r\\n' >\"$1/dict-nul.in\" && \"$0\" dict - <\"$1/dict-nul.in\" >\"$1/dict-nul.out\" && cmp \"$1/dict-nul.in\" \"$1/dict-nul.out\""
            $<TARGET_FILE:vanta> ${CMAKE_CURRENT_BINARY_DIR})
  set_tests_properties(tool.dict_prints_nul_bytes PROPERTIES LABELS suite TIMEOUT 60)
endif()
