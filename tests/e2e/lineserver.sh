# The server that carries sessions: strangers, limits, ends, TLS.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"
run_python limits_test "${@:2}"
finish
