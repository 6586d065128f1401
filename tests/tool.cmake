# The vanta tool end to end, where a command's own output is what a user relies on.
if(TARGET vanta)
  # vanta dict prints every entry, NUL bytes included, as the manual page says.
  add_test(NAME tool.dict_prints_nul_bytes
    COMMAND sh -c "printf '<1> <a\\000b>\\r\\n<2> <c>\\r\\n' >\"$1/dict-nul.in\" && \"$0\" dict - <\"$1/dict-nul.in\" >\"$1/dict-nul.out\" && cmp \"$1/dict-nul.in\" \"$1/dict-nul.out\""
            $<TARGET_FILE:vanta> ${CMAKE_CURRENT_BINARY_DIR})
  set_tests_properties(tool.dict_prints_nul_bytes PROPERTIES LABELS suite TIMEOUT 60)
endif()
