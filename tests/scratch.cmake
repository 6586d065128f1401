# The test runner's scratch folders: made under TMPDIR, none left by a passing run (death-test
# children share their parent's), and one left by a killed run removed by the next run.
add_test(NAME runner.scratch_folders
  COMMAND sh -c [[
    set -u
    bin=$0
    tmp=$(mktemp -d "$1/scratch-check.XXXXXX") || exit 1
    trap 'rm -rf "$tmp"' EXIT
    parent="$tmp/vanta-tests-$(id -u)"
    folders() { ls -A "$parent" 2>/dev/null | grep -vc '^sweep.lock$'; }
    TMPDIR="$tmp" "$bin" --gtest_filter=StatusApp.* --gtest_repeat=-1 >/dev/null 2>&1 &
    pid=$!
    i=0
    while [ "$(folders)" != 1 ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i + 1)); done
    kill -KILL $pid
    wait $pid
    [ "$(folders)" = 1 ] || { echo "a killed run left $(folders) folders under TMPDIR"; exit 1; }
    TMPDIR="$tmp" "$bin" --gtest_filter=StatusTranslationDeathTest.* >/dev/null ||
      { echo "the death test failed"; exit 1; }
    [ "$(folders)" = 0 ] || { echo "$(folders) folders left after a passing run"; ls -A "$parent"; exit 1; }
  ]] $<TARGET_FILE:test_status> ${CMAKE_CURRENT_BINARY_DIR})
set_tests_properties(runner.scratch_folders PROPERTIES LABELS suite TIMEOUT 120)
