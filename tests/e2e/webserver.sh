# The web server without a browser: its files, log-ins, whom it trusts, what strangers send.
source "$(dirname "$0")/common.bash"
source "$(dirname "$0")/backserver/run.bash"
run_python site_test "${@:2}"
finish
