# The tool's manual page renders without a single groff warning (-ww turns every one on).
find_program(VANTA_GROFF groff)
if(VANTA_GROFF)
  add_test(NAME manpage
    COMMAND sh -c "out=$(\"$0\" -man -Tutf8 -ww \"$1\" 2>&1 >/dev/null); [ -z \"$out\" ] || { echo \"$out\"; exit 1; }"
            ${VANTA_GROFF} ${PROJECT_SOURCE_DIR}/docs/vanta.1)
  set_tests_properties(manpage PROPERTIES LABELS docs TIMEOUT 60)
endif()
