# Sourced by the end-to-end tests: a temporary folder with a home of its own, and what they compare with.
# The program's path is the test's first argument. A test ends with `finish`.

set -u
program=$(readlink -f "$1")
work=$(mktemp -d "${TMPDIR:-/tmp}/nvadmin-e2e-XXXXXX")
home=$work/home
failures=0
at_exit=(remove_work)

remove_work() { chmod -R u+rwx "$work" && rm -rf "$work"; }
run_at_exit() { for action in "${at_exit[@]}"; do "$action"; done; }
trap run_at_exit EXIT

nvadmin() { "$program" --home "$home" "$@"; }

# expect_equal WHAT GOT WANT
expect_equal() {
  [[ $2 == "$3" ]] && return
  failures=$((failures + 1))
  echo "FAILED: $1"
  diff <(printf '%s\n' "$3") <(printf '%s\n' "$2") --label wanted --label got -U 3 | cat -A | cut -c 1-300
}

# expect_match WHAT TEXT REGEX
expect_match() {
  [[ $2 =~ $3 ]] && return
  failures=$((failures + 1))
  printf 'FAILED: %s\n  no match for: %s\n  in:\n%s\n' "$1" "$3" "$(cut -c 1-300 <<<"$2" | tail -n 40)"
}

# expect_run WHAT EXIT-CODE COMMAND...: runs it without input and keeps its output in $out and $err.
expect_run() {
  local what=$1 want=$2
  shift 2
  "$@" >"$work/out" 2>"$work/err" </dev/null
  local code=$?
  out=$(<"$work/out")
  err=$(<"$work/err")
  expect_equal "exit code of: $what ($out$err)" "$code" "$want"
}

finish() {
  ((failures == 0)) || { echo "$failures failed"; exit 1; }
  exit 0
}
