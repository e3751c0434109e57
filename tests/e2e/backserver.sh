# The back server and its client against the real program, on two accounts and the demo's.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"
run_python client_test many_test wire_test "${@:2}"
finish
