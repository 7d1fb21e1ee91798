#!/usr/bin/env bash
# Runs every end-to-end case of one directory against a zelk binary.
#
#   run_e2e.sh ZELK_BINARY CASE_DIR [NAME...]
#
# A case NAME is defined by NAME.expected, the whole expected standard output.
# Optional files beside it:
#   NAME.<ext>   the input (any extension but the ones below); passed as the last operand,
#                or in place of the word {} in NAME.args
#   NAME.args    command-line options on one line (shell words), e.g. -F opb -s 1
#   NAME.stdin   fed to standard input (otherwise standard input is empty)
#   NAME.err     expected standard error (default: empty)
#   NAME.status  expected exit status (default: 0)
#   NAME.env     environment variables for the run, one NAME=VALUE a line
# A case may give NAME.contains instead of NAME.expected: lines that must each stand, whole,
# somewhere in the output. It serves where only a few lines are the point (a parser trace
# whose other lines depend on the bison version, the usage text after an option error).
#
# The program runs as "zelk" (argv[0]), so usage texts and getopt messages are stable.
#
# Masking of lines that legitimately vary, applied to both the actual and the expected output:
#   - "c Seed is N" becomes "c Seed is <seed>" when the case gives no -s option;
#   - the time after "=== iteration time " becomes "<time>".
# An expected file may therefore hold either the real values or the masked words.
#
# Every SAT answer of an OPB case is also checked by the independent checker
# (opb_checker, found through $ZELK_TEST_TOOLS) when it has been built, and every
# model an XCSP case prints (all of them with -d) by tests/tools/xcsp_checker.py,
# every solution a FlatZinc case prints by tests/tools/fzn_checker.py, and
# every model of a C-like case by tests/tools/c_like_checker.py.
set -u
zelk=$1
dir=$2
shift 2
here=$(cd "$(dirname "$0")" && pwd)
cd "$dir" || exit 2

mask() {
  local seeded=$1
  if [ "$seeded" = yes ]; then
    sed -E 's/(=== iteration time ).*/\1<time>/'
  else
    sed -E -e 's/^([c%] Seed is ).*/\1<seed>/' -e 's/(=== iteration time ).*/\1<time>/'
  fi
}

names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for f in *.expected *.contains; do [ -e "$f" ] && names+=("${f%.*}"); done
fi

failed=0
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
for name in "${names[@]}"; do
  input=
  for f in "$name".*; do
    case "$f" in
      "$name".expected|"$name".contains|"$name".args|"$name".stdin|"$name".err|"$name".status|"$name".env) ;;
      *) input=$f ;;
    esac
  done
  args=()
  if [ -f "$name.args" ]; then
    read -r -a args < "$name.args"
  fi
  substituted=no
  for i in "${!args[@]}"; do
    if [ "${args[$i]}" = "{}" ]; then args[$i]=$input; substituted=yes; fi
  done
  if [ $substituted = no ] && [ -n "$input" ]; then args+=("$input"); fi
  seeded=no
  for a in "${args[@]}"; do case "$a" in -s*) seeded=yes ;; esac; done

  stdin=/dev/null
  [ -f "$name.stdin" ] && stdin=$name.stdin
  envs=()
  if [ -f "$name.env" ]; then
    while IFS= read -r line; do [ -n "$line" ] && envs+=("$line"); done < "$name.env"
  fi
  (for e in "${envs[@]}"; do export "$e"; done; exec -a zelk "$zelk" "${args[@]}") \
    < "$stdin" > "$tmp/out" 2> "$tmp/err"
  status=$?

  want_status=0
  [ -f "$name.status" ] && want_status=$(cat "$name.status")
  ok=yes
  if [ -f "$name.expected" ]; then
    if ! diff -u <(mask $seeded < "$name.expected") <(mask $seeded < "$tmp/out") > "$tmp/diff"; then
      echo "FAIL $dir/$name: standard output differs"; cat "$tmp/diff"; ok=no
    fi
  else
    mask $seeded < "$tmp/out" > "$tmp/masked"
    while IFS= read -r line; do
      if ! grep -q -x -F -e "$line" "$tmp/masked"; then
        echo "FAIL $dir/$name: no output line reads: $line"; ok=no
      fi
    done < <(mask $seeded < "$name.contains")
  fi
  if [ -f "$name.err" ]; then
    if ! diff -u "$name.err" "$tmp/err" > "$tmp/diff"; then
      echo "FAIL $dir/$name: standard error differs"; cat "$tmp/diff"; ok=no
    fi
  elif [ -s "$tmp/err" ]; then
    echo "FAIL $dir/$name: unexpected standard error:"; cat "$tmp/err"; ok=no
  fi
  if [ "$status" != "$want_status" ]; then
    echo "FAIL $dir/$name: exit status $status, expected $want_status"; ok=no
  fi
  case "$input" in
    *.opb)
      checker=${ZELK_TEST_TOOLS:-}/opb_checker
      if [ -x "$checker" ] && grep -q -E '^s (SATISFIABLE|OPTIMUM FOUND)' "$tmp/out"; then
        if ! "$checker" "$input" < "$tmp/out" > "$tmp/check" 2>&1; then
          echo "FAIL $dir/$name: solution check failed:"; cat "$tmp/check"; ok=no
        fi
      fi
      ;;
    *.xml)
      checker=$here/../tools/xcsp_checker.py
      # -d prints its models with no status line: any value line is checked.
      if grep -q -E '^(s (SATISFIABLE|OPTIMUM FOUND)|v( |$))' "$tmp/out"; then
        if ! python3 "$checker" "$input" < "$tmp/out" > "$tmp/check" 2>&1; then
          echo "FAIL $dir/$name: solution check failed:"; cat "$tmp/check"; ok=no
        fi
      fi
      ;;
    *.fzn)
      checker=$here/../tools/fzn_checker.py
      # every solution, also those of -d and each improvement of an objective
      if grep -q -x -e '----------' "$tmp/out"; then
        if ! python3 "$checker" "$input" < "$tmp/out" > "$tmp/check" 2>&1; then
          echo "FAIL $dir/$name: solution check failed:"; cat "$tmp/check"; ok=no
        fi
      fi
      ;;
    *.c)
      checker=$here/../tools/c_like_checker.py
      if grep -q -E '^(s (SATISFIABLE|OPTIMUM FOUND)|v( |$))' "$tmp/out"; then
        if ! python3 "$checker" "$input" < "$tmp/out" > "$tmp/check" 2>&1; then
          echo "FAIL $dir/$name: solution check failed:"; cat "$tmp/check"; ok=no
        fi
      fi
      ;;
  esac
  if [ $ok = yes ]; then echo "ok   $dir/$name"; else failed=$((failed + 1)); fi
done
[ $failed -eq 0 ] || { echo "$failed case(s) failed"; exit 1; }
