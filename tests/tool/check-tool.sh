#!/usr/bin/env bash
# Checks the vanta tool's conventions. The oracle for "-" is the tool itself given each line as its
# own argument: the batch must print the same results in the same order, put each rejected line's
# error on stderr with its line number, and exit 1 when any line was rejected.
# usage: check-tool.sh VANTA
set -uo pipefail
vanta=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# --version prints the version record's version; anything after it is a usage error.
version=$("$vanta" --version) || fail "--version exited $?"
[[ $version =~ ^vanta\ [0-9]+\.[0-9]+\.[0-9]{4}$ ]] || fail "--version printed '$version'"
"$vanta" --version extra >/dev/null 2>&1; [ $? -eq 2 ] || fail "--version extra is not a usage error"

# COMMAND --help: the command's usage on stdout, exit 0, for every command --help lists.
commands=$("$vanta" --help | sed -n 's/^  vanta \([a-z-]*\) .*/\1/p' | grep -v '^demo$' | sort -u)
[ -n "$commands" ] || fail "--help lists no commands"
for c in $commands; do
  out=$("$vanta" "$c" --help 2>&1) || fail "$c --help exited $?"
  [[ $out == "usage: vanta $c"* ]] || fail "$c --help printed '$out'"
done
# "--help" is only help alone: as a second TEXT it stays text.
"$vanta" latlng --help extra >/dev/null 2>&1; [ $? -eq 2 ] || fail "latlng --help extra is not a usage error"

# batch COMMAND [OPTIONS...] < lines: compares `vanta COMMAND [OPTIONS] -` with one run per line.
batch() {
  local input=$1; shift
  : >"$work/want.out"; : >"$work/want.err"
  local want_status=0 n=0 line
  while IFS= read -r line || [ -n "$line" ]; do
    n=$((n + 1))
    if "$vanta" "$@" "$line" >>"$work/want.out" 2>"$work/one.err"; then :; else
      [ $? -eq 1 ] || fail "$* '$line' exited neither 0 nor 1"
      want_status=1
      sed "s/^vanta: /vanta: line $n: /" "$work/one.err" >>"$work/want.err"
    fi
  done <"$input"
  "$vanta" "$@" - <"$input" >"$work/got.out" 2>"$work/got.err"
  local status=$?
  [ $status -eq $want_status ] || fail "$* -: exit $status, want $want_status"
  cmp -s "$work/got.out" "$work/want.out" || { fail "$* -: stdout differs"; diff "$work/want.out" "$work/got.out" >&2; }
  cmp -s "$work/got.err" "$work/want.err" || { fail "$* -: stderr differs"; diff "$work/want.err" "$work/got.err" >&2; }
}

# Inputs mix accepted and rejected lines, an empty line, and texts that start with "-".
printf '%s\n' "12°30'36\"" '12,5' 'abc' '' '-0' > "$work/values"
printf '%s\n' 'S 33 52 8' '45n' '-12.5' '95' 'N' > "$work/lats"
printf '%s\n' '122W' '-181' '12 30 E' > "$work/lngs"
printf '%s\n' '37.7749N 122.4194W' '95 10' '-33.8688/151.2093' '12,5N 45,3E' > "$work/pairs"
printf '%s\n' '2005-03-17T08:30:00+05:30' 'xx' '-0044-03-15' '2005-02-30' > "$work/dates"
printf '%s\n' 'Thu, 17 Mar 2005 08:30:00 GMT' 'yesterday' > "$work/http"
printf '%s\n' 'a//b/./c' 'C:\a\..\b' '' > "$work/paths"
printf '%s\n' '0xc000000b' '3221225483' '-1' '0x' > "$work/codes"
batch "$work/values" value
batch "$work/lats" lat
batch "$work/lngs" lng
batch "$work/pairs" latlng
batch "$work/dates" date
batch "$work/dates" date --utc --seconds
batch "$work/http" httpdate
batch "$work/paths" cleanpath
batch "$work/codes" status

# A last line without a newline is still read; a CRLF line end is not part of the text.
out=$(printf '45n\r\n-12.5' | "$vanta" lat -) || fail "lat - on CRLF input exited $?"
[ "$out" = $'45\n-12.5' ] || fail "lat - on CRLF input printed '$out'"
# A line longer than any read buffer arrives whole: rejected as one line, not as pieces.
long=$(head -c 10000 /dev/zero | tr '\0' '1')
out=$(printf '%s\n45n\n' "$long" | "$vanta" lat - 2>"$work/err")
[ $? -eq 1 ] && [ "$out" = 45 ] && [ "$(grep -c '^vanta: line 1: ' "$work/err")" = 1 ] &&
  ! grep -q 'line 3' "$work/err" || fail "a 10000-byte line was not one rejected line"
# A NUL byte inside a line stays in that line: the line is rejected, the next one is its own.
out=$(printf '45n\0x\n12s\n' | "$vanta" lat - 2>"$work/err")
[ $? -eq 1 ] && [ "$out" = -12 ] && grep -q '^vanta: line 1: ' "$work/err" && ! grep -q 'line 2' "$work/err" ||
  fail "a NUL byte merged lines: '$out' / $(cat "$work/err")"
# Unreadable standard input (a directory) is an error, not an empty batch.
"$vanta" lat - </ >/dev/null 2>&1; [ $? -eq 1 ] || fail "lat - reading a directory did not fail"
# Empty standard input: nothing printed, success.
out=$("$vanta" latlng - </dev/null) && [ -z "$out" ] || fail "latlng - on empty input"

[ $failures -eq 0 ] && echo "tool conventions ok"
[ $failures -eq 0 ]
