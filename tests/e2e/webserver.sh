# The web server without a browser: its files, log-ins, whom it trusts, what strangers send.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"

# A fresh machine: the home is made, and what is printed suffices for a log-in.
nl=$'\n'
fresh=$work/fresh
"$program" --home "$fresh" serve --web 127.0.0.1:0 2>"$work/log" &
server=$!
until [[ -e $work/log ]]; do sleep 0.05; done
for ((tries = 0; tries < 600; ++tries)); do grep -q 'no users yet' "$work/log" && break; sleep 0.05; done
expect_match "a fresh machine" "$(<"$work/log")" \
  "no home at $fresh: it is made now, with the account DEMO$nl.* web server listens on http://127.0.0.1:[0-9]+/$nl.*no users yet"
add=$(sed -n "s/.*add one with 'nvadmin \(.*\)NAME\(.*\)', also.*/\1carl\2/p" "$work/log")
expect_equal "the way to add a user" "$add" "--home $fresh user add carl --account DEMO"
"$program" $add <<<"pass word" >/dev/null
address=$(sed -n 's/.*web server listens on //p' "$work/log")
status=$(python3 - "$address" <<'END'
import sys, urllib.error, urllib.request
class Stay(urllib.request.HTTPRedirectHandler):
    def redirect_request(self, *_): return None
try: urllib.request.build_opener(Stay).open(sys.argv[1] + "login", b"user=carl&password=pass+word&account=")
except urllib.error.HTTPError as answer: print(answer.code)
END
)
kill "$server"
wait "$server"
expect_equal "the end of the fresh machine ($(tail -n 3 "$work/log"))" $? 0
expect_equal "a log-in there" "$status" 303

# Silence takes half a minute to be noticed.
(
  run_python site_test.Slow
  finish
) &
slow=$!
run_python site_test.Requests
wait "$slow"
expect_equal "exit code of the slow tests" $? 0
finish
